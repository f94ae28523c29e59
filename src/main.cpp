// The program's entry: the start-up decision between the parity mode and interactive use.

#include <QApplication>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "app/parity.h"
#include "app/settings.h"
#include "build_info.h"
#include "cli/say.h"
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
    if (!isSet("QT_QPA_PLATFORM") && !isSet("DISPLAY") && !isSet("WAYLAND_DISPLAY")) {
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

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1 && std::strcmp(argv[1], "say") == 0) {
        return runSay(argc, argv);  // headless, and no settings of the window's
    }
    if (argc > 1 && std::strcmp(argv[1], "voices") == 0) {
        return runVoices(argc, argv);  // headless too
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
