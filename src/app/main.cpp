// The program's entry: the start-up decision between the parity mode and interactive use.

#include <QCoreApplication>
#include <QThreadPool>
#include <iostream>

#include "app/parity_exit.h"
#include "app/settings.h"
#include "build_info.h"

namespace {

using namespace murmela;

// The batch run. Headless on purpose: an event loop to receive the exit code and nothing that
// needs a display. The run itself goes to the global thread pool; the main thread only waits.
int runParityMode(int& argc, char** argv, const ArgumentDomain& arguments) {
    QCoreApplication application(argc, argv);
    QThreadPool::globalInstance()->start([arguments] { runParityAndExit(arguments); });
    const int code = QCoreApplication::exec();
    QThreadPool::globalInstance()->waitForDone();
    return code;
}

// Interactive use.
int runInteractive(int& /*argc*/, char** /*argv*/, const ArgumentDomain& /*arguments*/) {
    std::cout << buildinfo::appName << ' ' << buildinfo::version
              << ": the windowed application is not built yet; the parity mode runs with "
                 "-murmela.parity OUTDIR -murmela.lines FILE\n";
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const ArgumentDomain arguments = ArgumentDomain::fromCommandLine(argc, argv);
    // Decided before any application object exists, so the batch run needs no display.
    if (SettingsStore::standard(arguments).value("murmela.parity")) {
        return runParityMode(argc, argv, arguments);
    }
    return runInteractive(argc, argv, arguments);
}
