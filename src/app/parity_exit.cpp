#include "app/parity_exit.h"

#include <QCoreApplication>
#include <QMetaObject>

#include "app/parity.h"
#include "logging/log.h"

namespace murmela {

void runParityAndExit(ArgumentDomain arguments) {
    int code = 0;
    {
        // Made and dropped on this thread: the store is used by one thread at a time.
        const SettingsStore settings = SettingsStore::standard(std::move(arguments));
        code = runParity(settings);
    }
    QCoreApplication* application = QCoreApplication::instance();
    if (application == nullptr) {
        programmingError("the parity mode ran without an application to end");
    }
    QMetaObject::invokeMethod(
        application, [code] { QCoreApplication::exit(code); }, Qt::QueuedConnection);
}

}  // namespace murmela
