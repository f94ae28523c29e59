#pragma once
// The one speaking service: the voice works on the render thread "murmela.render" while the
// player, on the main thread, plays each chunk as soon as it has been made; saves are written
// as they are made, so a book takes no more memory than a sentence. The window's model, the
// command line and the assistant companion all speak and save through it.
//
// Every member is called on the main thread, which runs a Qt event loop; every signal and
// callback comes there. One job (a speech, a save) runs at a time, in the order they were asked
// for. The voice is opened by the first job that needs it; when opening fails, each later job
// tries again. Stopping a speech interrupts the voice in the middle of the chunk it is making,
// so that the next job need not wait for it; a save is never interrupted that way.

#include <QObject>
#include <QString>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "app/render_queue.h"
#include "app/render_work.h"
#include "audio/player.h"
#include "engine/voice.h"

namespace murmela {

struct PlayableChunk;
struct UtteranceEnd;

class Narrator : public QObject {
    Q_OBJECT

public:
    // `openVoice` runs on the render thread and may throw; what it throws is reported as the
    // job's failure.
    explicit Narrator(std::function<std::shared_ptr<Voice>()> openVoice, QObject* parent = nullptr);
    ~Narrator() override;
    Narrator(const Narrator&) = delete;
    Narrator& operator=(const Narrator&) = delete;

    // Opens the voice now rather than at the first job that needs it, unless it is open
    // already; `done` comes on this thread with how long opening took, or why it failed. A
    // failed opening is tried again by the next job.
    struct LoadResult {
        int64_t milliseconds = 0;
        std::optional<std::string> error;
    };
    void load(std::function<void(LoadResult)> done);

    // Speaks and saves with the voice `openVoice` gives from the next job on; the voice open
    // until then is let go once the jobs asked for before this are done, so two voices are
    // never held at once.
    void useVoice(std::function<std::shared_ptr<Voice>()> openVoice);

    // Runs `work` on the render thread after the jobs asked for before it, for work on voices
    // that must not run beside speaking; `done` comes on this thread with the description of
    // what `work` threw, if anything.
    void runBetweenJobs(std::function<void()> work,
                        std::function<void(std::optional<std::string> error)> done);

    // Starts speaking `text` at `speed`, stopping what was being spoken, and gives the new
    // speech's cancel flag, raised once it has been stopped or has failed. Throws
    // AudioOutputError when the sound output cannot be opened. Then comes either `synthesised`
    // (followed, when there was something to speak, by `heard`), `voiceFailed` or `soundFailed`,
    // unless stop() comes first.
    std::shared_ptr<const CancelFlag> speak(std::string text, double speed);

    // Starts a speech whose text comes in parts, stopping what was being spoken: for text still
    // arriving. Throws AudioOutputError when the sound output cannot be opened. Each part added
    // plays right after the one before, with no cut; once the speech is closed and its last part
    // made, the same signals as for speak() follow, `synthesised` counting every part.
    void openSpeech();
    // Adds `text` at `speed` to the open speech; ignored when it has already ended (stopped, or
    // failed, which has been reported).
    void addToSpeech(std::string text, double speed);
    // No more text comes for the open speech.
    void closeSpeech();
    // The parts of the open speech still being made, and the blocks of audio still to be heard:
    // what a caller that adds text as it arrives keeps small, so that memory stays flat.
    int64_t speechBacklog() const;

    // Ends the speech under way at once, silently; nothing more is reported about it. Says
    // whether there was one.
    bool stop();

    // How a save ended: the samples written (0: the text gave nothing to speak, and no file was
    // written), or the error's description.
    struct SaveResult {
        int64_t samples = 0;
        std::optional<std::string> error;
    };

    // Writes `text` spoken at `speed` to `destination` as a WAV file (see saveSpeech; the file is
    // opened on the render thread, just before the voice speaks into it) and calls
    // `done` with the result. A save cannot be stopped; it is abandoned, writing nothing, only
    // when the narrator goes. `checkDestination`, when given, runs on the render thread just
    // before the file is opened and again just before it is put in place; what it throws
    // ends the save, writing nothing, with its description as the error.
    void save(std::string text, double speed, std::filesystem::path destination,
              std::function<void(SaveResult)> done, std::function<void()> checkDestination = {});

    // The player the speech goes to, for inspection.
    const Player& player() const { return player_; }

signals:
    // The first chunk of a text (a speech's, or a part's) has gone to the player; its synthesis
    // took `milliseconds` and it has `ids` token ids.
    void firstChunkPlayed(qint64 milliseconds, qint64 ids);
    // Every chunk of the speech has been made: `samples` in all, 0 when the text gave nothing
    // to speak (the speech is then over).
    void synthesised(qint64 samples);
    // The last sample of the speech has been played.
    void heard();
    // The speech ended early: the voice could not be opened or failed to speak.
    void voiceFailed(const QString& description);
    // The speech ended early: the sound output failed while playing.
    void soundFailed(const QString& description);

private:
    // Runs on the render thread: the voice, opened on first use.
    Voice& voice();
    // Interrupts the speech being synthesised, if any (any thread).
    void interruptSpeech();
    void chunkReady(const std::shared_ptr<CancelFlag>& flag, PlayableChunk chunk);
    void utteranceSynthesised(const std::shared_ptr<CancelFlag>& flag, const UtteranceEnd& end);
    // Starts the player on a new speech and makes it the one under way.
    std::shared_ptr<CancelFlag> startPlaying();
    // Makes `text` on the render thread as part of the speech `flag`, interruptible while it is
    // made; `ended` comes on this thread.
    void synthesise(std::string text, double speed, const std::shared_ptr<CancelFlag>& flag,
                    std::function<void(const UtteranceEnd&)> ended);
    // The speech under way has been made, `samples` in all.
    void allSynthesised(int64_t samples);
    void partSynthesised(const std::shared_ptr<CancelFlag>& flag, const UtteranceEnd& end);
    // Ends the open speech once it is closed and every part has been made.
    void finishWhenAllMade();
    // Whether the open speech is the one under way.
    bool speechIsOpen() const;
    // Ends the speech under way.
    void end();

    std::function<std::shared_ptr<Voice>()> openVoice_;  // used on the render thread only
    std::mutex voiceLock_;  // guards the two below, which the render thread sets
    std::shared_ptr<Voice> voice_;
    std::shared_ptr<CancelFlag> synthesising_;  // the speech the render thread is making
    Player player_;
    std::shared_ptr<CancelFlag> current_;  // the speech under way, if any
    // A speech made of parts (openSpeech); over when its flag is no longer current_.
    struct OpenSpeech {
        std::shared_ptr<CancelFlag> flag;
        int64_t partsBeingMade = 0;
        int64_t samples = 0;  // in the parts made
        bool closed = false;
    };
    std::optional<OpenSpeech> open_;
    std::shared_ptr<CancelFlag> closing_ = std::make_shared<CancelFlag>();
    MainThreadInbox inbox_;
    // Last, so that it closes first: no job outlives the members it uses.
    RenderQueue renderQueue_;
};

}  // namespace murmela
