#include "ui/desktop_services.h"

#include <QCoreApplication>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QDBusPendingCallWatcher>
#include <QDesktopServices>
#include <QFile>
#include <QFileDialog>
#include <QImage>
#include <QPainter>
#include <QPointer>
#include <QStringList>
#include <QSvgRenderer>
#include <QUrl>
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <vector>

#include "app/speech.h"
#include "logging/log.h"

namespace murmela::ui {
namespace {
const QString iconResource = QStringLiteral(":/murmela/icon.svg");
}  // namespace

QPixmap applicationIconPixmap(int size, qreal devicePixelRatio) {
    int pixels = std::max(1, static_cast<int>(std::lround(size * devicePixelRatio)));
    QImage image(pixels, pixels, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QSvgRenderer renderer(iconResource);
    if (renderer.isValid()) {
        QPainter painter(&image);
        renderer.render(&painter, QRectF(0, 0, pixels, pixels));
    }
    QPixmap pixmap = QPixmap::fromImage(image);
    pixmap.setDevicePixelRatio(devicePixelRatio);
    return pixmap;
}

QIcon applicationIcon() {
    QIcon icon;
    for (int size : {16, 24, 32, 48, 64, 128, 256}) {
        icon.addPixmap(applicationIconPixmap(size, 1));
    }
    return icon;
}

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

std::optional<QUrl> linkAddress(const QString& text) {
    QUrl url(text, QUrl::StrictMode);
    if (!url.isValid()) {
        return std::nullopt;
    }
    QString scheme = url.scheme();
    bool web = (scheme == QLatin1String("http") || scheme == QLatin1String("https")) &&
               !url.host().isEmpty();
    bool mail = scheme == QLatin1String("mailto") && url.path().contains(QLatin1Char('@'));
    if (!web && !mail) {
        return std::nullopt;
    }
    return url;
}

namespace {

QString withWavEnding(const QString& path) {
    return path.endsWith(QStringLiteral(".wav"), Qt::CaseInsensitive)
               ? path
               : path + QStringLiteral(".wav");
}

}  // namespace

QFileDialog* presentSavePanel(Speech& speech, QWidget* window, const UiTables& tables) {
    if (speech.phase() != Phase::ready || !speech.canSpeak()) {
        return nullptr;
    }
    auto* dialog = new QFileDialog(window);
    dialog->setObjectName(QStringLiteral("savePanel"));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setAcceptMode(QFileDialog::AcceptSave);
    dialog->setFileMode(QFileDialog::AnyFile);
    dialog->setNameFilter(tables.text(QStringLiteral("murmela.saveFilter")));
    dialog->setDefaultSuffix(QStringLiteral("wav"));
    if (const char* directory = std::getenv("MURMELA_SAVE_DIR")) {
        dialog->setDirectory(QString::fromLocal8Bit(directory));
    }
    dialog->selectFile(tables.text(QStringLiteral("murmela.saveName")));

    QPointer<Speech> model(&speech);
    QObject::connect(dialog, &QFileDialog::fileSelected, dialog, [model](const QString& file) {
        if (model && !file.isEmpty()) {
            model->save(QFile::encodeName(withWavEnding(file)).toStdString());
        }
    });
    if (window != nullptr) {
        dialog->setWindowModality(Qt::WindowModal);
        dialog->open();
        return dialog;
    }
    dialog->exec();
    return nullptr;
}

QFileDialog* presentAddVoicePanel(Speech& speech, QWidget* window, const UiTables& tables) {
    if (speech.phase() != Phase::ready && speech.phase() != Phase::failed) {
        return nullptr;
    }
    auto* dialog = new QFileDialog(window);
    dialog->setObjectName(QStringLiteral("addVoicePanel"));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setAcceptMode(QFileDialog::AcceptOpen);
    dialog->setFileMode(QFileDialog::ExistingFiles);
    dialog->setNameFilter(tables.text(QStringLiteral("murmela.addVoiceFilter")));
    QPointer<Speech> model(&speech);
    QObject::connect(dialog, &QFileDialog::filesSelected, dialog,
                     [model](const QStringList& files) {
                         std::vector<std::filesystem::path> sources;
                         for (const QString& file : files) {
                             sources.emplace_back(QFile::encodeName(file).toStdString());
                         }
                         if (model && !sources.empty()) {
                             model->addVoice(std::move(sources));
                         }
                     });
    dialog->setWindowModality(Qt::WindowModal);
    dialog->open();
    return dialog;
}

}  // namespace murmela::ui
