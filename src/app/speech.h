#pragma once
// The application model: the one observable object behind the main window.
//
// It owns the text being edited and the speaking speed (kept in the settings store), and shows
// what it is doing as a Phase and an optional Notice. Its three long operations, loading the
// voice, speaking and saving, go to the speaking service (Narrator), which runs them one at a
// time on its render thread and owns the voice, the player and the cancel flags; their results
// are applied here, on the main thread.
//
// Every member is called on the main thread, which must run a Qt event loop. Every operation
// checks the phase itself and does nothing when it does not apply, so a view never needs to
// disable a control. A property's change signal comes only when its value really changed.
//
// Destroying the model while work runs ends it as the narrator's end does: speaking and saving
// stop at once (a save then writes nothing), a load runs to its end, and every result still on
// its way lapses. Nothing is called back afterwards.

#include <QObject>
#include <QString>

#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

#include "app/narrator.h"
#include "app/phase.h"
#include "app/render_work.h"
#include "app/settings.h"
#include "audio/player.h"
#include "voices/voice_store.h"

namespace murmela {

class Speech : public QObject {
    Q_OBJECT
    Q_PROPERTY(murmela::Phase phase READ phase NOTIFY phaseChanged)
    Q_PROPERTY(std::optional<murmela::Notice> notice READ notice NOTIFY noticeChanged)
    Q_PROPERTY(QString text READ text WRITE setText NOTIFY textChanged)
    Q_PROPERTY(double speed READ speed WRITE setSpeed NOTIFY speedChanged)
    Q_PROPERTY(bool canSpeak READ canSpeak NOTIFY textChanged)
    Q_PROPERTY(bool hasVoice READ hasVoice NOTIFY voiceChanged)
    Q_PROPERTY(bool cancelled READ cancelled NOTIFY cancelChanged)
    Q_PROPERTY(QString voiceId READ voiceId WRITE setVoiceId NOTIFY voiceIdChanged)

public:
    // An installed voice the model can speak with.
    struct VoiceOption {
        QString id;
        QString name;
        QString language;
    };

    // Reads "speed" from `defaults` (missing or not a number: 1.0) and normalises it; the phase
    // is `loading` until load() is called. `voiceDirectory` is the bundled voice's directory;
    // without one, each load looks for "Voice/" among the application's resources. Reads
    // "voice" too, the id of an installed voice; when that voice is gone, the bundled one
    // speaks and the first load's notice says so (`voiceGone`).
    explicit Speech(SettingsStore defaults,
                    std::optional<std::filesystem::path> voiceDirectory = std::nullopt,
                    QObject* parent = nullptr);
    ~Speech() override;
    Speech(const Speech&) = delete;
    Speech& operator=(const Speech&) = delete;

    Phase phase() const { return phase_; }
    // What the last operation left to show, until the next one clears or replaces it.
    const std::optional<Notice>& notice() const { return notice_; }

    // The text to speak or save, passed on whole (never trimmed).
    const QString& text() const { return text_; }
    void setText(const QString& text);

    // 0.75 to 1.5 in steps of 0.05. Assigning normalises the value (see normalisedSpeed) and
    // writes it to the settings store.
    double speed() const { return speed_; }
    void setSpeed(double speed);

    // The installed voices, the bundled one first, as they were when the model was made or a
    // voice was last added.
    const std::vector<VoiceOption>& voices() const { return voices_; }
    // The id of the voice that speaks. Assigning one of voices() remembers it in the settings
    // store and, when it differs, ends speaking and lets the old voice go; the new one opens
    // at the next load(), which follows at once when a voice was loaded.
    const QString& voiceId() const { return voiceId_; }
    void setVoiceId(const QString& id);

    // Installs a voice from `sources` (a voice folder, a Piper model, or a Kokoro model with
    // its voice pack), checked as `murmela voices add` checks it, and makes it the voice that
    // speaks. Only while `ready` or `failed`: the phase is `loading` while it is checked and the
    // new voice opens; a voice that does not pass leaves the notice `voiceNotAdded`.
    void addVoice(std::vector<std::filesystem::path> sources);

    // The text has something besides white space and line ends.
    bool canSpeak() const;
    // A voice has been loaded.
    bool hasVoice() const { return hasVoice_; }
    // The current cancel flag is raised (by stop(), or an output that failed). Each utterance
    // gets a new flag; cancelChanged() comes when the flag is replaced and when it is raised.
    bool cancelled() const { return cancel_->isCancelled(); }

    // The player the model speaks through, for inspection.
    const Player& player() const { return narrator_.player(); }

    // Starts a save of the text, at the speed, to `destination` as a 16-bit PCM WAV at 24000 Hz
    // (written as it is made, and put in place atomically). Only while `ready` with a voice and a
    // text to speak: the phase is `saving` until it is written (notice `saved` with the file name),
    // the text gave nothing
    // (`empty`, no file) or it failed (`saveFailed`, logged). It cannot be stopped.
    void save(const std::filesystem::path& destination);

public slots:
    // Loads the voice on the render thread unless it is loaded already (then the phase just
    // becomes `ready`): `loading`, then `ready` or `failed`. From `failed`, tries again. A load
    // asked for while one is under way joins it.
    void load();
    // Speaks the text at the speed, playing each chunk as soon as it is synthesised. Only while
    // `ready` with a voice and a text to speak: the phase is `speaking` until the last block has
    // been heard, the text gave nothing (notice `empty`), synthesis failed or the output could
    // not be opened or failed (notice `failed`, logged).
    void speak();
    // Ends speaking at once (only while `speaking`): raises the flag, silences the player and
    // returns to `ready`. What the stopped utterance still delivers is ignored.
    void stop();

signals:
    void phaseChanged(murmela::Phase phase);
    void noticeChanged(const std::optional<murmela::Notice>& notice);
    void textChanged(const QString& text);
    void speedChanged(double speed);
    void voiceChanged();
    void cancelChanged();
    void voiceIdChanged(const QString& id);
    // voices() changed: a voice was added.
    void voicesChanged();

private:
    void setPhase(Phase phase);
    void setNotice(std::optional<Notice> notice);

    // Reads the installed voices into voices_ and added_.
    void readVoices();
    // Has the narrator speak with the voice `id` (one of voices_) from its next job on.
    void useVoice(const QString& id);
    void loaded(const Narrator::LoadResult& result, int generation);
    void utteranceSynthesised(qint64 samples);
    void utteranceHeard();
    void utteranceFailed(const std::string& message);
    void saveEnded(const std::filesystem::path& destination, const Narrator::SaveResult& result);

    Phase phase_ = Phase::loading;
    std::optional<Notice> notice_;
    QString text_;
    double speed_ = 1.0;
    SettingsStore defaults_;
    std::optional<std::filesystem::path> bundledDirectory_;
    VoiceLocations locations_;
    std::vector<VoiceOption> voices_;
    std::vector<InstalledVoice> added_;  // voices_ but the first, the bundled one
    QString voiceId_;
    std::optional<QString> goneVoice_;  // said by the first load's notice
    bool hasVoice_ = false;
    bool loadUnderWay_ = false;
    int loadGeneration_ = 0;  // a load's result counts only when no voice was chosen since
    // The flag of the last speech (a fresh one before the first), so that it reads as raised
    // once that speech has been stopped.
    std::shared_ptr<const CancelFlag> cancel_ = std::make_shared<CancelFlag>();
    // Last, so that it goes first: no result comes back to the members above once they are gone.
    Narrator narrator_;
};

}  // namespace murmela
