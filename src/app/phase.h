#pragma once
// What the application model shows: its phase and the notice of the last operation.
//
// What the application model is doing, as the views show it.

#include <QMetaType>
#include <QString>
#include <optional>

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

// The outcome of the last operation, shown until the next one clears or replaces it.

struct Notice {
    enum class Kind {
        saved,          // a WAV file was written; `name` is its file name
        empty,          // the text gave nothing to synthesise
        failed,         // speaking could not start or failed
        saveFailed,     // saving failed
        voiceGone,      // the voice chosen before is no longer installed; `name` is its id
        voiceNotAdded,  // a voice could not be added; `name` says why
    };

    Kind kind;
    QString name;  // only for `saved`, `voiceGone` and `voiceNotAdded`

    static Notice saved(QString fileName) { return {Kind::saved, std::move(fileName)}; }
    static Notice empty() { return {Kind::empty, {}}; }
    static Notice failed() { return {Kind::failed, {}}; }
    static Notice saveFailed() { return {Kind::saveFailed, {}}; }
    static Notice voiceGone(QString id) { return {Kind::voiceGone, std::move(id)}; }
    static Notice voiceNotAdded(QString why) { return {Kind::voiceNotAdded, std::move(why)}; }

    // The same kind and, for those with a name, the same name.
    friend bool operator==(const Notice& a, const Notice& b) {
        const bool named =
            a.kind == Kind::saved || a.kind == Kind::voiceGone || a.kind == Kind::voiceNotAdded;
        return a.kind == b.kind && (!named || a.name == b.name);
    }
};

// "saved(<name>)", "empty", "failed", "saveFailed", "voiceGone(<id>)" or
// "voiceNotAdded(<why>)"; "none" for no notice.
QString describe(const std::optional<Notice>& notice);

}  // namespace murmela

Q_DECLARE_METATYPE(murmela::Phase)
Q_DECLARE_METATYPE(murmela::Notice)
Q_DECLARE_METATYPE(std::optional<murmela::Notice>)
