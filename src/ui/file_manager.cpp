#include "ui/file_manager.h"

#include <QCoreApplication>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QDBusPendingCallWatcher>
#include <QDesktopServices>
#include <QFile>
#include <QStringList>
#include <QUrl>

#include "logging/log.h"

namespace murmela::ui {
namespace {

// A file manager that is slow to start is still given the chance to answer.
constexpr int replyTimeoutMs = 10000;

void openFolder(const QUrl& url) {
    if (!QDesktopServices::openUrl(url)) {
        log::error("murmelaUi", "cannot show " + url.toLocalFile().toStdString());
    }
}

}  // namespace

void revealInFileManager(const std::filesystem::path& folder, const QDBusConnection& bus) {
    QUrl url = QUrl::fromLocalFile(QFile::decodeName(QByteArray::fromStdString(folder.string())));
    if (!bus.isConnected()) {
        openFolder(url);
        return;
    }
    QDBusMessage message = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.FileManager1"),
        QStringLiteral("/org/freedesktop/FileManager1"),
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowItems"));
    message << QStringList{url.toString()} << QString();
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(message, replyTimeoutMs),
                                                QCoreApplication::instance());
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher,
                     [url](QDBusPendingCallWatcher* finished) {
                         if (finished->isError()) {
                             openFolder(url);
                         }
                         finished->deleteLater();
                     });
}

}  // namespace murmela::ui
