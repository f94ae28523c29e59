#include "cli/say.h"

#include <unistd.h>

#include <QCoreApplication>
#include <QTimer>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "app/narrator.h"
#include "app/render_work.h"
#include "app/speech_output.h"
#include "audio/wav_stream.h"
#include "build_info.h"
#include "cli/input_sentences.h"
#include "cli/say_options.h"
#include "common/voice_format.h"
#include "voices/installed_voice.h"

namespace murmela {
namespace {

// Ends the command early with a status and a one-line message.
struct SayFailure {
    SayExit code;
    std::string message;
};

// The texts to speak, one at a time: the words given, as one, or the sentences of standard
// input as they arrive. Nothing once there are no more.
using TextSource = std::function<std::optional<std::string>()>;

TextSource onlyText(std::string text) {
    return [text = std::optional<std::string>(std::move(text))]() mutable {
        return std::exchange(text, std::nullopt);
    };
}

TextSource sentencesOf(InputSentences& input) {
    return [&input] {
        try {
            return input.next();
        } catch (const InputError& error) {
            throw SayFailure{sayBadInput, error.what()};
        }
    };
}

std::shared_ptr<Voice> openVoice(const SayOptions& options) {
    try {
        if (!options.voice) {
            return openWarmVoice(std::nullopt);
        }
        return openWarmVoice(chooseVoice(*options.voice, VoiceStore(VoiceLocations::standard())));
    } catch (...) {
        throw SayFailure{sayVoiceMissing, errorDescription(std::current_exception())};
    }
}

const SayFailure nothingToSpeak{sayBadInput, "the text has nothing to speak"};

// The voice's errors become the command's; those of the output (system errors) are left to
// the caller, which knows what it was writing.
int64_t speakOrFail(const std::function<int64_t()>& speaking) {
    try {
        return speaking();
    } catch (const std::system_error&) {
        throw;
    } catch (const SayFailure&) {
        throw;
    } catch (...) {
        throw SayFailure{sayVoiceFailed, errorDescription(std::current_exception())};
    }
}

// Each text goes onto the end of the scratch file as soon as it is spoken; the file is put in
// place after the last, and not at all when reading or speaking fails.
void writeWavFile(const SayOptions& options, const TextSource& nextText) {
    WavFile file;
    int64_t samples = 0;
    try {
        // The destination is tried before the voice is opened, so a bad path fails at once.
        openWavFile(file, options.wavFile, false);
        const std::shared_ptr<Voice> voice = openVoice(options);
        const CancelFlag never;
        while (const std::optional<std::string> text = nextText()) {
            samples += speakOrFail(
                [&] { return appendSpeech(*voice, *text, options.speed, file, never); });
        }
        if (samples > 0) {
            finishWavFile(file, sampleRate);
        }
    } catch (const std::filesystem::filesystem_error& error) {
        throw SayFailure{sayBadOutput, writeFailure(options.wavFile, error)};
    }
    if (samples == 0) {
        throw nothingToSpeak;
    }
}

void writeRawSamples(const SayOptions& options, const TextSource& nextText) {
    if (::isatty(STDOUT_FILENO) == 1) {
        throw SayFailure{sayBadArguments,
                         "--raw writes binary samples; send them to a pipe or a file"};
    }
    // A reader that goes away is a write error to report, not a signal that ends the program.
    std::signal(SIGPIPE, SIG_IGN);
    const std::shared_ptr<Voice> voice = openVoice(options);
    int64_t samples = 0;
    try {
        while (const std::optional<std::string> text = nextText()) {
            samples += speakOrFail(
                [&] { return streamSpeech(*voice, *text, options.speed, STDOUT_FILENO); });
        }
    } catch (const std::system_error& error) {
        throw SayFailure{sayBadOutput,
                         "cannot write to standard output: " + error.code().message()};
    }
    if (samples == 0) {
        throw nothingToSpeak;
    }
}

// Qt's own warnings (a sound server it cannot reach, and the like) are for developers; the
// command's one-line errors say what went wrong in the user's terms.
void onlyQtsSeriousMessages(QtMsgType type, const QMessageLogContext& context,
                            const QString& message) {
    if (type == QtCriticalMsg || type == QtFatalMsg) {
        std::fprintf(stderr, "%s\n",
                     qFormatLogMessage(type, context, message).toLocal8Bit().constData());
    }
}

// How many parts still to be made or blocks still to be heard let the next sentence of
// standard input in: enough that one plays while the next is made, few enough that a long text
// piped in fast waits in the pipe rather than in memory.
constexpr int64_t maxSpeechBacklog = 3;
// How often the sentences that have arrived are looked for.
constexpr std::chrono::milliseconds feedInterval{50};

// Gives the narrator the sentences of standard input as they arrive, while its backlog is small.
// Gives the failure to read, if any.
std::optional<SayFailure> feedSentences(Narrator& narrator, InputSentences& input, double speed,
                                        QTimer& feeding) {
    try {
        while (narrator.speechBacklog() < maxSpeechBacklog && input.ready()) {
            std::optional<std::string> sentence = input.next();
            if (!sentence) {
                feeding.stop();
                narrator.closeSpeech();
                break;
            }
            narrator.addToSpeech(std::move(*sentence), speed);
        }
    } catch (const InputError& error) {
        return SayFailure{sayBadInput, error.what()};
    }
    return std::nullopt;
}

// Plays the words given, or the sentences of `input` as they arrive.
void playOnDevice(int& argc, char** argv, const SayOptions& options, InputSentences* input) {
    const std::shared_ptr<Voice> voice = openVoice(options);
    qInstallMessageHandler(onlyQtsSeriousMessages);
    QCoreApplication application(argc, argv);
    Narrator narrator([voice] { return voice; });
    std::optional<SayFailure> failure;
    auto endWith = [&](std::optional<SayFailure> outcome) {
        failure = std::move(outcome);
        QCoreApplication::quit();
    };
    QObject::connect(&narrator, &Narrator::synthesised, [&](qint64 samples) {
        if (samples == 0) {
            endWith(nothingToSpeak);
        }
    });
    QObject::connect(&narrator, &Narrator::heard, [&] { endWith(std::nullopt); });
    QObject::connect(&narrator, &Narrator::voiceFailed, [&](const QString& description) {
        endWith(SayFailure{sayVoiceFailed, description.toStdString()});
    });
    QObject::connect(&narrator, &Narrator::soundFailed, [&](const QString& description) {
        endWith(SayFailure{sayBadOutput, "sound output failed: " + description.toStdString()});
    });
    QTimer feeding;
    try {
        if (options.text) {
            narrator.speak(*options.text, options.speed);
        } else {
            narrator.openSpeech();
            feeding.setInterval(feedInterval);
            QObject::connect(&feeding, &QTimer::timeout, [&] {
                if (std::optional<SayFailure> readFailed =
                        feedSentences(narrator, *input, options.speed, feeding)) {
                    feeding.stop();
                    endWith(std::move(readFailed));
                }
            });
            feeding.start();
        }
    } catch (const AudioOutputError& error) {
        throw SayFailure{sayBadOutput, std::string("cannot play: ") + error.what()};
    }
    QCoreApplication::exec();
    if (failure) {
        throw *failure;
    }
}

}  // namespace

int runSay(int& argc, char** argv) {
    try {
        SayOptions options;
        try {
            options = parseSayOptions(std::vector<std::string>(argv + 2, argv + argc));
        } catch (const UsageError& error) {
            throw SayFailure{sayBadArguments,
                             std::string(error.what()) + "; try 'murmela say --help'"};
        }
        if (options.help) {
            std::fputs(sayUsage().c_str(), stdout);
            return sayDone;
        }
        if (options.version) {
            std::printf("murmela %s\n", buildinfo::version);
            return sayDone;
        }
        // Standard input is read as it arrives, while the voice opens and speaks.
        std::optional<InputSentences> input;
        if (!options.text) {
            try {
                input.emplace(STDIN_FILENO);
            } catch (const InputError& error) {
                throw SayFailure{sayBadInput, error.what()};
            }
        }
        const TextSource nextText = input ? sentencesOf(*input) : onlyText(*options.text);
        switch (options.destination) {
            case SayOptions::Destination::wavFile:
                writeWavFile(options, nextText);
                break;
            case SayOptions::Destination::raw:
                writeRawSamples(options, nextText);
                break;
            case SayOptions::Destination::device:
                playOnDevice(argc, argv, options, input ? &*input : nullptr);
                break;
        }
        return sayDone;
    } catch (const SayFailure& failure) {
        std::fprintf(stderr, "murmela say: %s\n", failure.message.c_str());
        return failure.code;
    } catch (...) {
        std::fprintf(stderr, "murmela say: %s\n",
                     errorDescription(std::current_exception()).c_str());
        return sayVoiceFailed;
    }
}

}  // namespace murmela
