#pragma once
// What the application model is doing, as the views show it.

#include <QMetaType>

namespace murmela {

enum class Phase {
    loading,   // the voice is being opened (also before the first load is asked for)
    ready,     // idle, with a voice
    speaking,  // an utterance is being synthesised and played
    saving,    // a WAV file is being written
    failed,    // the voice could not be loaded; load() tries again
};

// The phase's name as written above, for messages and test output.
const char* name(Phase phase);

}  // namespace murmela

Q_DECLARE_METATYPE(murmela::Phase)
