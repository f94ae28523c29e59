#include "cli/say.h"

#include <unistd.h>

#include <QCoreApplication>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "app/render_work.h"
#include "audio/wav_stream.h"
#include "build_info.h"
#include "cli/narrator.h"
#include "cli/say_options.h"
#include "cli/speech_output.h"

namespace murmela {
namespace {

// Ends the command early with a status and a one-line message.
struct SayFailure {
    SayExit code;
    std::string message;
};

std::string readStandardInput() {
    std::string text;
    std::vector<char> buffer(1 << 16);
    for (;;) {
        const ssize_t count = ::read(STDIN_FILENO, buffer.data(), buffer.size());
        if (count == 0) {
            return text;
        }
        if (count < 0) {
            if (errno == EINTR) {
                continue;
            }
            throw SayFailure{sayBadInput,
                             std::string("cannot read standard input: ") + std::strerror(errno)};
        }
        text.append(buffer.data(), static_cast<size_t>(count));
    }
}

std::shared_ptr<Voice> openVoice() {
    try {
        return openWarmVoice(std::nullopt);
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

void writeWavFile(const SayOptions& options, const std::string& text) {
    WavFile file;
    int64_t samples = 0;
    try {
        // The destination is tried before the voice is opened, so a bad path fails at once.
        openWavFile(file, options.wavFile, false);
        const std::shared_ptr<Voice> voice = openVoice();
        const CancelFlag never;
        samples = speakOrFail([&] { return saveSpeech(*voice, text, options.speed, file, never); });
    } catch (const std::filesystem::filesystem_error& error) {
        throw SayFailure{sayBadOutput, writeFailure(options.wavFile, error)};
    }
    if (samples == 0) {
        throw nothingToSpeak;
    }
}

void writeRawSamples(const SayOptions& options, const std::string& text) {
    if (::isatty(STDOUT_FILENO) == 1) {
        throw SayFailure{sayBadArguments,
                         "--raw writes binary samples; send them to a pipe or a file"};
    }
    // A reader that goes away is a write error to report, not a signal that ends the program.
    std::signal(SIGPIPE, SIG_IGN);
    const std::shared_ptr<Voice> voice = openVoice();
    int64_t samples = 0;
    try {
        samples =
            speakOrFail([&] { return streamSpeech(*voice, text, options.speed, STDOUT_FILENO); });
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

void playOnDevice(int& argc, char** argv, const SayOptions& options, const std::string& text) {
    const std::shared_ptr<Voice> voice = openVoice();
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
    try {
        narrator.speak(text, options.speed);
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
                             std::string(error.what()) + " (murmela say --help shows the usage)"};
        }
        if (options.help) {
            std::fputs(sayUsage().c_str(), stdout);
            return sayDone;
        }
        if (options.version) {
            std::printf("murmela %s\n", buildinfo::version);
            return sayDone;
        }
        const std::string text = options.text ? *options.text : readStandardInput();
        switch (options.destination) {
            case SayOptions::Destination::wavFile:
                writeWavFile(options, text);
                break;
            case SayOptions::Destination::raw:
                writeRawSamples(options, text);
                break;
            case SayOptions::Destination::device:
                playOnDevice(argc, argv, options, text);
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
