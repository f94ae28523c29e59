// The program's entry: its commands and their help, and the start-up decision between the
// parity mode and interactive use.

#include <QApplication>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "app/parity.h"
#include "app/settings.h"
#include "build_info.h"
#include "cli/say.h"
#include "cli/say_options.h"
#include "ui/desktop_services.h"
#include "ui/murmela_app.h"
#include "voices/voices_command.h"

namespace {

using namespace murmela;

bool isSet(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr && *value != '\0';
}

// Qt ends the process with a screenful of messages when it cannot reach a display. While the
// application object is made, its platform's chatter is held back and a fatal message becomes
// one plain line and exit code 1; afterwards Qt's own handler is back.
QString heldBack;

void startUpMessages(QtMsgType type, const QMessageLogContext& context, const QString& message) {
    if (type == QtFatalMsg) {
        // The platform's own words ("could not connect to display :1") say more than the
        // fatal message that follows them.
        const QString reason =
            heldBack.isEmpty() ? message.section(QLatin1Char('\n'), 0, 0) : heldBack;
        std::fprintf(stderr, "murmela: cannot open a window: %s\n",
                     reason.toLocal8Bit().constData());
        std::_Exit(1);
    }
    const bool platformChatter =
        context.category != nullptr && std::strncmp(context.category, "qt.qpa", 6) == 0;
    if (!platformChatter) {
        std::fprintf(stderr, "%s\n",
                     qFormatLogMessage(type, context, message).toLocal8Bit().constData());
    } else if (heldBack.isEmpty()) {
        heldBack = message;
    }
}

// Interactive use: the windows and the model.
int runInteractive(int& argc, char** argv, const ArgumentDomain& arguments) {
    // A platform or display named on the command line is Qt's to try.
    const bool displayGiven = arguments.value("platform") || arguments.value("display") ||
                              isSet("QT_QPA_PLATFORM") || isSet("DISPLAY") ||
                              isSet("WAYLAND_DISPLAY");
    if (!displayGiven) {
        std::fprintf(stderr,
                     "murmela: no display to open a window on (DISPLAY and WAYLAND_DISPLAY are "
                     "unset); the parity mode runs without one\n");
        return 1;
    }
    qInstallMessageHandler(startUpMessages);
    QApplication application(argc, argv);
    qInstallMessageHandler(nullptr);
    QApplication::setApplicationName(QString::fromUtf8(buildinfo::appName));
    QApplication::setApplicationVersion(QString::fromUtf8(buildinfo::version));
    QApplication::setDesktopFileName(QString::fromUtf8(buildinfo::appId));
    QApplication::setWindowIcon(ui::applicationIcon());

    ui::MurmelaApp app(SettingsStore::forModel(arguments));
    QObject::connect(&app, &ui::MurmelaApp::quitRequested, &application, &QApplication::quit,
                     Qt::QueuedConnection);
    app.mainWindow().show();
    return QApplication::exec();
}

// A command word after the program's name.
struct Command {
    std::string_view name;
    std::string_view synopsis;           // its arguments, as the usage lines show them
    std::string_view summary;            // what it does, in a few words
    int (*run)(int& argc, char** argv);  // argv[1] is the command's name
    std::string (*help)();               // its own help text
};

// Every command; one more is one more line here, and the help lists it.
constexpr Command commands[] = {
    {"say", "[--speed S] [--output FILE.wav | --raw] [TEXT...]",
     "speak text or standard input without a window", runSay, sayUsage},
    {"voices", "[--json] | add PATH|URL... | remove ID",
     "list, add and remove the installed voices",
     [](int& argc, char** argv) { return runVoices(argc, argv); }, voicesUsage},
};

const Command* findCommand(std::string_view name) {
    for (const Command& command : commands) {
        if (command.name == name) {
            return &command;
        }
    }
    return nullptr;
}

// Settings that the command line gives as "-KEY VALUE" pairs: the parity mode's.
constexpr std::string_view settingKeys[] = {"murmela.parity", "murmela.lines"};

// Qt's own options that take a value, for the window (-platform xcb). Those without a value
// (-reverse) are refused: the settings pairs could not be told apart from them.
constexpr std::string_view toolkitOptions[] = {
    "platform",        "platformpluginpath", "platformtheme", "plugin",
    "qwindowgeometry", "qwindowicon",        "qwindowtitle",  "session",
    "display",         "geometry",           "style",         "stylesheet"};

std::string usage() {
    std::string text = "Usage: murmela\n";
    for (const Command& command : commands) {
        text += "       murmela " + std::string(command.name) + " " +
                std::string(command.synopsis) + "\n";
    }
    text +=
        "       murmela -murmela.parity OUTDIR -murmela.lines FILE\n"
        "       murmela help [COMMAND]\n"
        "       murmela --version\n"
        "\n"
        "Reads English text aloud, or saves it as a WAV file, on this computer.\n"
        "\n"
        "Commands:\n"
        "  (none)          open the window: type or paste text, hear it, save it; needs a\n"
        "                  display\n";
    for (const Command& command : commands) {
        std::string name(command.name);
        name.resize(std::max<size_t>(name.size() + 1, 16), ' ');
        text += "  " + name + std::string(command.summary) + "\n";
    }
    text +=
        "  help [COMMAND]  show this help, or a command's own\n"
        "\n"
        "Parity mode, without a window:\n"
        "  -murmela.parity OUTDIR -murmela.lines FILE\n"
        "                  speak every line of the JSON file FILE into raw samples and a\n"
        "                  report with timings in OUTDIR\n"
        "\n"
        "Options:\n"
        "  -h, --help      show this help\n"
        "      --version   show the version\n"
        "  -platform NAME, -style NAME, -display DISPLAY, ...\n"
        "                  Qt's options that take a value, for the window\n"
        "\n"
        "Exit status: 0 done, 1 failed, 2 bad arguments (say tells its own in its help).\n"
        "\n"
        "'murmela say --help' shows the options of say; 'man murmela' describes them all,\n"
        "the assistant companion and the speech-dispatcher module.\n";
    return text;
}

// The one line that bad arguments get; gives their exit status.
int refuse(const std::string& problem) {
    std::fprintf(stderr, "murmela: %s; try 'murmela --help'\n", problem.c_str());
    return 2;
}

bool asksForHelp(std::string_view argument) {
    return argument == "--help" || argument == "-h";
}

// `murmela help [COMMAND]` and `murmela --help [COMMAND]`.
int showHelp(std::span<const std::string_view> topic) {
    if (topic.empty()) {
        std::fputs(usage().c_str(), stdout);
        return 0;
    }
    const Command* command = findCommand(topic.front());
    if (command == nullptr) {
        return refuse("unknown command '" + std::string(topic.front()) + "'");
    }
    std::fputs(command->help().c_str(), stdout);
    return 0;
}

int showVersion() {
    std::printf("murmela %s\n", buildinfo::version);
    return 0;
}

// What is wrong with the arguments of the window or the parity mode, which are "-KEY VALUE"
// pairs of the settings and of Qt, if anything.
std::optional<std::string> problemWith(std::span<const std::string_view> arguments) {
    for (size_t index = 0; index < arguments.size(); index += 2) {
        const std::string_view argument = arguments[index];
        const std::string quoted = "'" + std::string(argument) + "'";
        if (argument.size() < 2 || argument[0] != '-') {
            return (index == 0 ? "unknown command " : "unexpected argument ") + quoted;
        }
        const std::string_view key = argument.substr(1);
        const auto known = [key](std::span<const std::string_view> names) {
            return std::find(names.begin(), names.end(), key) != names.end();
        };
        if (!known(settingKeys) && !known(toolkitOptions)) {
            return "unknown option " + quoted;
        }
        if (index + 1 == arguments.size()) {
            return "option " + quoted + " needs a value";
        }
    }
    return std::nullopt;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string_view> given(argv + std::min(argc, 1), argv + argc);
    if (!given.empty()) {
        const std::string_view first = given.front();
        if (const Command* command = findCommand(first)) {
            return command->run(argc, argv);  // headless, and no settings of the window's
        }
        if (first == "help" || asksForHelp(first)) {
            return showHelp(std::span(given).subspan(1));
        }
        if (first == "--version") {
            return showVersion();
        }
    }
    if (std::optional<std::string> problem = problemWith(given)) {
        return refuse(*problem);
    }
    const ArgumentDomain arguments = ArgumentDomain::fromCommandLine(argc, argv);
    // Decided before any application object exists: the batch run needs no display, and no
    // event loop either, since it runs start to end on this thread.
    const SettingsStore settings = SettingsStore::standard(arguments);
    if (settings.value("murmela.parity")) {
        return runParity(settings);
    }
    return runInteractive(argc, argv, arguments);
}
