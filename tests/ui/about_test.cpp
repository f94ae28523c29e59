// The About window: what it shows from the tables, the build and the voice's own description,
// which credits are links, the one window, showing the licences folder, and the folder itself.

#include <gtest/gtest.h>

#include <QApplication>
#include <QDBusConnection>
#include <QDesktopServices>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QTest>
#include <QUrl>
#include <iostream>
#include <iterator>

#include "build_info.h"
#include "files/files.h"
#include "support/gui_test.h"
#include "support/temporary_directory.h"
#include "ui/about_view.h"
#include "ui/about_window.h"
#include "ui/desktop_services.h"

namespace murmela::ui {
namespace {

using murmela::testing::findNamed;
using murmela::testing::TemporaryDirectory;

UiTables tablesWith(QHash<QString, QString> texts) {
    return {TextTable(std::move(texts)), designTokens()};
}

// The credit label `name` of `view` shows `text`, as a link to `address` or, when that is empty,
// as plain text.
void expectCredit(const AboutView& view, const char* name, const QString& text,
                  const QString& address = {}) {
    SCOPED_TRACE(name);
    const auto* label = findNamed<QLabel>(&view, name);
    ASSERT_NE(label, nullptr);
    if (address.isEmpty()) {
        EXPECT_EQ(label->textFormat(), Qt::PlainText);
        EXPECT_EQ(label->text(), text);
        return;
    }
    EXPECT_EQ(label->textFormat(), Qt::RichText);
    EXPECT_TRUE(label->openExternalLinks());
    EXPECT_TRUE(label->text().contains("href=\"" + address + "\"")) << label->text().toStdString();
    EXPECT_TRUE(label->text().contains(">" + text + "</a>")) << label->text().toStdString();
}

TEST(AboutView, AVoiceIsCreditedInItsOwnWordsAndALicenceLinkOnlyUnderItsOwnNameAllEscaped) {
    const QString tableLicence = "https://creativecommons.org/licenses/by-nc/4.0/";
    const QString kokoro = "https://huggingface.co/hexgrad/Kokoro-82M";
    const UiTables tables = tablesWith({{"murmela.about.model", "Table model line"},
                                        {"murmela.about.license", "Model licence"},
                                        {"murmela.about.licenseLink", tableLicence},
                                        {"murmela.about.kokoro", "Made for"},
                                        {"murmela.about.kokoroLink", kokoro},
                                        {"murmela.about.voice", "Voice"},
                                        {"murmela.about.source", "<b>Source</b> & more"},
                                        {"murmela.about.espeakLink", "https://example.org/?b&c"}});
    {
        AboutView view(tables, {},
                       VoiceCredit{"Teacher voice", "Built from a teacher.", "BSD-style",
                                   "https://example.org/licence?a=1&b=2"});
        EXPECT_EQ(findNamed<QLabel>(&view, "aboutModel")->text(), "Built from a teacher.");
        EXPECT_EQ(findNamed<QLabel>(&view, "aboutLicense")->text(), "Model licence");
        expectCredit(view, "aboutLicenseLink", "BSD-style",
                     "https://example.org/licence?a=1&amp;b=2");
        EXPECT_EQ(findNamed<QLabel>(&view, "aboutLicenseLink")->accessibleName(), "BSD-style");
        // Named by itself, the voice is not credited as Kokoro-82M.
        EXPECT_EQ(findNamed<QLabel>(&view, "aboutKokoro")->text(), "Voice");
        expectCredit(view, "aboutKokoroLink", "Teacher voice");
        // Link texts are escaped.
        expectCredit(view, "aboutEspeakLink", "&lt;b&gt;Source&lt;/b&gt; &amp; more",
                     "https://example.org/?b&amp;c");
    }
    // A voice that says nothing, names a licence without a usable address or gives an address
    // without a licence's name: the table's credits, and no link under another licence's name.
    const struct {
        VoiceCredit voice;
        QString licence, address;
    } partial[] = {{{}, "CC BY-NC 4.0", tableLicence},
                   {{"", "", "Own licence", "none"}, "Own licence", ""},
                   {{"", "", "", "https://example.org/own"}, "CC BY-NC 4.0", tableLicence}};
    for (const auto& [voice, licence, address] : partial) {
        SCOPED_TRACE(voice.licenseLink.toStdString());
        AboutView view(tables, {}, voice);
        EXPECT_EQ(findNamed<QLabel>(&view, "aboutModel")->text(), "Table model line");
        expectCredit(view, "aboutLicenseLink", licence, address);
        EXPECT_EQ(findNamed<QLabel>(&view, "aboutKokoro")->text(), "Made for");
        expectCredit(view, "aboutKokoroLink", "Kokoro-82M", kokoro);
    }
}

TEST(AboutView, OnlyAbsoluteWebAndMailAddressesAreLinks) {
    for (const char* good :
         {"https://example.org/", "http://example.org/x?y=1#z", "mailto:someone@example.org"}) {
        EXPECT_TRUE(linkAddress(good)) << good;
    }
    for (const char* bad :
         {"", "murmela.about.kokoroLink", "example.org", "www.example.org/x", "/usr/share/doc",
          "file:///etc/passwd", "ftp://example.org/", "javascript:alert(1)", "https://",
          "mailto:", "https://exa mple.org", " https://example.org/"}) {
        EXPECT_FALSE(linkAddress(bad)) << bad;
    }
}

TEST(AboutView, BundledVoiceShowsItsOwnLicence) {
    if (!MURMELA_BUNDLED_VOICE) {
        GTEST_SKIP() << "built without the bundled voice";
    }
    // MURMELA_RESOURCES points at the staged resources, as the installed program finds its own.
    AboutView view;
    auto* license = findNamed<QLabel>(&view, "aboutLicenseLink");
    EXPECT_FALSE(license->text().contains("CC BY-NC")) << license->text().toStdString();
    EXPECT_TRUE(license->accessibleName().contains("Carnegie Mellon"))
        << license->accessibleName().toStdString();
    EXPECT_EQ(license->textFormat(), Qt::RichText) << "the licence links to its text";
    EXPECT_TRUE(findNamed<QLabel>(&view, "aboutModel")->text().contains("cmu_us_rms"));
    EXPECT_NE(findNamed<QLabel>(&view, "aboutKokoroLink")->text(), "Kokoro-82M");
}

TEST(AboutView, EveryShownItemHasANameAndTheVersionLineShowsVersionAndBuild) {
    AboutView view;
    for (const char* name :
         {"aboutIcon", "aboutName", "aboutModel", "aboutVersion", "aboutLicense",
          "aboutLicenseLink", "aboutKokoro", "aboutKokoroLink", "aboutEspeak", "aboutEspeakLink"}) {
        auto* label = findNamed<QLabel>(&view, name);
        ASSERT_NE(label, nullptr) << name;
        EXPECT_FALSE(label->accessibleName().isEmpty()) << name;
        EXPECT_FALSE(label->accessibleName().startsWith("murmela.")) << name;
    }
    EXPECT_EQ(findNamed<QPushButton>(&view, "aboutLicenses")->accessibleName(),
              text("murmela.about.licenses"));
    EXPECT_FALSE(findNamed<QLabel>(&view, "aboutIcon")->pixmap().isNull());
    const QString version = QString::fromUtf8(buildinfo::version);
    const QString build = QString::fromUtf8(buildinfo::build);
    ASSERT_FALSE(version.isEmpty() || build.isEmpty());
    EXPECT_EQ(findNamed<QLabel>(&view, "aboutVersion")->text(),
              text("murmela.about.version", {{"version", version}, {"build", build}}));
}

TEST(AboutWindow, OpeningTwiceKeepsOneCentredFixedSizeWindow) {
    AboutWindow about;
    EXPECT_EQ(about.window(), nullptr) << "no window before it is asked for";
    QWidget* first = about.open();
    ASSERT_NE(first, nullptr);
    ASSERT_TRUE(QTest::qWaitForWindowExposed(first));
    EXPECT_EQ(first->objectName(), "about");
    EXPECT_EQ(first->windowTitle(), text("murmela.about.title"));
    EXPECT_EQ(about.open(), first);
    int aboutWindows = 0;
    for (QWidget* window : QApplication::topLevelWidgets()) {
        aboutWindows += window->objectName() == "about" ? 1 : 0;
    }
    EXPECT_EQ(aboutWindows, 1);

    EXPECT_EQ(first->minimumSize(), first->maximumSize()) << "the user cannot resize it";
    QRect area = QGuiApplication::primaryScreen()->availableGeometry();
    // Centred on the screen, up to the window frame, whose size is known only once shown.
    QPoint offset = first->geometry().center() - area.center();
    EXPECT_LE(std::abs(offset.x()), (first->frameGeometry().width() - first->width()) / 2 + 1);
    EXPECT_LE(std::abs(offset.y()), (first->frameGeometry().height() - first->height()) / 2 + 1);

    // Closing it ends it; asking again makes a new one.
    first->close();
    QApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_EQ(about.window(), nullptr);
    QWidget* second = about.open();
    ASSERT_NE(second, nullptr);
    EXPECT_TRUE(second->isVisible());
}

// Stands in for the desktop's file manager on the test run's own session bus.
class FakeFileManager : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")

public:
    QList<QStringList> shown;

public slots:
    void ShowItems(const QStringList& uris, const QString&) { shown.append(uris); }
};

// Records what the desktop was asked to open.
class OpenedUrls : public QObject {
    Q_OBJECT

public:
    OpenedUrls() { QDesktopServices::setUrlHandler("file", this, "open"); }
    ~OpenedUrls() override { QDesktopServices::unsetUrlHandler("file"); }

    QList<QUrl> urls;

public slots:
    void open(const QUrl& url) { urls.append(url); }
};

TEST(RevealLicenses, TheFileManagerShowsTheFolderAndWithoutOneTheFolderIsOpened) {
    TemporaryDirectory licenses;
    const QUrl folder = QUrl::fromLocalFile(QString::fromStdString(licenses.path().string()));
    if (murmela::testing::hasPrivateSessionBus()) {
        QDBusConnection service =
            QDBusConnection::connectToBus(QDBusConnection::SessionBus, "fileManager");
        ASSERT_TRUE(service.isConnected());
        FakeFileManager fileManager;
        ASSERT_TRUE(service.registerObject("/org/freedesktop/FileManager1", &fileManager,
                                           QDBusConnection::ExportAllSlots));
        ASSERT_TRUE(service.registerService("org.freedesktop.FileManager1"));
        OpenedUrls opened;
        AboutView view(UiTables::application(), licenses.path());
        findNamed<QPushButton>(&view, "aboutLicenses")->click();
        ASSERT_TRUE(QTest::qWaitFor([&] { return fileManager.shown.size() == 1; }));
        EXPECT_EQ(fileManager.shown.front(), QStringList{folder.toString()});
        QTest::qWait(50);
        EXPECT_TRUE(opened.urls.isEmpty()) << "the folder is shown, not opened";
        service.unregisterService("org.freedesktop.FileManager1");
        service.unregisterObject("/org/freedesktop/FileManager1");
        QDBusConnection::disconnectFromBus("fileManager");
    } else {
        std::cout << "no session bus of the test's own; only the cases without a file manager\n";
    }
    // A bus on which nobody answers for the file manager, and no bus at all.
    for (const QDBusConnection& bus :
         {QDBusConnection::sessionBus(), QDBusConnection("murmela-no-such-connection")}) {
        OpenedUrls opened;
        revealInFileManager(licenses.path(), bus);
        ASSERT_TRUE(QTest::qWaitFor([&] { return opened.urls.size() == 1; }));
        EXPECT_EQ(opened.urls.front(), folder);
    }
}

TEST(Licenses, StagedFolderHoldsTheLicenceOfEverythingShippedAndNothingElse) {
    const std::filesystem::path folder = AboutView::defaultLicensesFolder();
    EXPECT_TRUE(std::filesystem::equivalent(
        folder, murmela::testing::stagedResourceDirectory() / "Licenses"));
    // Each file, and a phrase that shows it is the right project's text.
    std::vector<std::pair<const char*, const char*>> expected = {
        {"espeak-ng.txt", "espeak-ng"},
        {"espeak-ng-data.txt", "espeak-ng"},
        {"onnxruntime.txt", "ONNX Runtime"},
        {"qt6-base.txt", "Qt"},
        {"qt6-svg.txt", "Qt"},
        {"qt6-multimedia.txt", "Qt"},
        {"fftw3.txt", "FFTW"},
        {"icu.txt", "ICU"},
        {"nlohmann-json.txt", "nlohmann"},
        {"Kokoro-82M.txt", "CC BY-NC 4.0"}};
    if (MURMELA_BUNDLED_VOICE) {
        expected.push_back({"flite-cmu_us_rms.txt", "Carnegie Mellon"});
    }
    for (const auto& [file, mentions] : expected) {
        EXPECT_NE(readFile(folder / file).find(mentions), std::string::npos) << file;
    }
    const auto files = std::distance(std::filesystem::directory_iterator(folder),
                                     std::filesystem::directory_iterator());
    EXPECT_EQ(static_cast<size_t>(files), expected.size()) << "nothing else ends up in the folder";
}

}  // namespace
}  // namespace murmela::ui

#include "about_test.moc"
