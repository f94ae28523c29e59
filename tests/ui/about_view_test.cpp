// The About window: what it shows from the tables, the build and the voice's own description,
// which credits are links, the one window, and showing the licences folder.

#include "ui/about_view.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QDBusConnection>
#include <QDesktopServices>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QTest>
#include <QUrl>

#include "build_info.h"
#include "support/gui_test.h"
#include "support/temporary_directory.h"
#include "ui/about_window.h"
#include "ui/desktop_services.h"

namespace murmela::ui {
namespace {

using murmela::testing::findNamed;
using murmela::testing::TemporaryDirectory;
using murmela::testing::writeText;

UiTables tablesWith(QHash<QString, QString> texts) {
    return {TextTable(std::move(texts)), designTokens()};
}

// Whether `label` shows a link to `address`.
bool linksTo(const QLabel* label, const QString& address) {
    return label->textFormat() == Qt::RichText && label->openExternalLinks() &&
           label->text().contains("href=\"" + address + "\"");
}

TEST(AboutView, VersionLineShowsVersionAndBuildWhereTheTextPlacesThem) {
    AboutView view(tablesWith({{"murmela.about.version", "b{build} v{version} ({version})"}}));
    auto* version = findNamed<QLabel>(&view, "aboutVersion");
    ASSERT_NE(version, nullptr);
    QString shownVersion = QString::fromUtf8(buildinfo::version);
    QString shownBuild = QString::fromUtf8(buildinfo::build);
    ASSERT_FALSE(shownVersion.isEmpty());
    ASSERT_FALSE(shownBuild.isEmpty());
    EXPECT_EQ(version->text(), "b" + shownBuild + " v" + shownVersion + " (" + shownVersion + ")");
}

TEST(AboutView, CreditWithoutValidAddressShowsItsTextWithoutLink) {
    AboutView view(
        tablesWith({
            {"murmela.about.license", "Model licence"},
            {"murmela.about.licenseLink", "https://creativecommons.org/licenses/by-nc/4.0/"},
            {"murmela.about.kokoro", "Made for"},
            {"murmela.about.kokoroLink", "huggingface.co/hexgrad/Kokoro-82M"},
            {"murmela.about.espeak", "Phonemes by espeak-ng"},
            {"murmela.about.source", "Source <code> & more"},
            // no espeakLink: the key itself is shown as its text, which is no address
        }),
        {}, VoiceCredit{});
    auto* license = findNamed<QLabel>(&view, "aboutLicenseLink");
    auto* kokoro = findNamed<QLabel>(&view, "aboutKokoroLink");
    auto* espeak = findNamed<QLabel>(&view, "aboutEspeakLink");
    ASSERT_TRUE(license && kokoro && espeak);

    EXPECT_TRUE(linksTo(license, "https://creativecommons.org/licenses/by-nc/4.0/"));
    EXPECT_TRUE(license->text().contains(">CC BY-NC 4.0</a>"));

    EXPECT_EQ(kokoro->textFormat(), Qt::PlainText);
    EXPECT_EQ(kokoro->text(), "Kokoro-82M");
    EXPECT_EQ(espeak->textFormat(), Qt::PlainText);
    EXPECT_EQ(espeak->text(), "Source <code> & more");

    EXPECT_EQ(findNamed<QLabel>(&view, "aboutKokoro")->text(), "Made for");
    EXPECT_EQ(findNamed<QLabel>(&view, "aboutEspeak")->text(), "Phonemes by espeak-ng");
}

const QHash<QString, QString> creditTexts = {
    {"murmela.about.model", "Table model line"},
    {"murmela.about.license", "Model licence"},
    {"murmela.about.licenseLink", "https://creativecommons.org/licenses/by-nc/4.0/"},
    {"murmela.about.kokoro", "Made for"},
    {"murmela.about.kokoroLink", "https://huggingface.co/hexgrad/Kokoro-82M"},
    {"murmela.about.voice", "Voice"},
};

TEST(AboutView, VoiceThatDescribesItselfIsCreditedInItsOwnWords) {
    VoiceCredit voice{"Teacher voice", "Built from a teacher.", "BSD-style",
                      "https://example.org/licence?a=1&b=2"};
    AboutView view(tablesWith(creditTexts), {}, voice);
    EXPECT_EQ(findNamed<QLabel>(&view, "aboutModel")->text(), "Built from a teacher.");

    auto* license = findNamed<QLabel>(&view, "aboutLicenseLink");
    EXPECT_TRUE(linksTo(license, "https://example.org/licence?a=1&amp;b=2"));
    EXPECT_TRUE(license->text().contains(">BSD-style</a>"));
    EXPECT_FALSE(license->text().contains("CC BY-NC")) << "the voice's licence, not the table's";
    EXPECT_EQ(license->accessibleName(), "BSD-style");
    EXPECT_EQ(findNamed<QLabel>(&view, "aboutLicense")->text(), "Model licence");

    // Named by itself, the voice is not credited as Kokoro-82M.
    EXPECT_EQ(findNamed<QLabel>(&view, "aboutKokoro")->text(), "Voice");
    auto* name = findNamed<QLabel>(&view, "aboutKokoroLink");
    EXPECT_EQ(name->textFormat(), Qt::PlainText);
    EXPECT_EQ(name->text(), "Teacher voice");
}

TEST(AboutView, VoiceThatSaysNothingGetsTheTablesCredits) {
    AboutView view(tablesWith(creditTexts), {}, VoiceCredit{});
    EXPECT_EQ(findNamed<QLabel>(&view, "aboutModel")->text(), "Table model line");
    auto* license = findNamed<QLabel>(&view, "aboutLicenseLink");
    EXPECT_TRUE(linksTo(license, "https://creativecommons.org/licenses/by-nc/4.0/"));
    EXPECT_TRUE(license->text().contains(">CC BY-NC 4.0</a>"));
    EXPECT_EQ(findNamed<QLabel>(&view, "aboutKokoro")->text(), "Made for");
    EXPECT_TRUE(linksTo(findNamed<QLabel>(&view, "aboutKokoroLink"),
                        "https://huggingface.co/hexgrad/Kokoro-82M"));
}

TEST(AboutView, LicenceLinkIsNeverShownUnderAnotherLicencesName) {
    {
        // A licence without a usable address is named without a link.
        AboutView view(tablesWith(creditTexts), {}, VoiceCredit{"", "", "Own licence", "none"});
        auto* license = findNamed<QLabel>(&view, "aboutLicenseLink");
        EXPECT_EQ(license->textFormat(), Qt::PlainText);
        EXPECT_EQ(license->text(), "Own licence");
    }
    {
        // An address without a licence name is not put under the table's licence name.
        AboutView view(tablesWith(creditTexts), {},
                       VoiceCredit{"", "", "", "https://example.org/own"});
        auto* license = findNamed<QLabel>(&view, "aboutLicenseLink");
        EXPECT_TRUE(linksTo(license, "https://creativecommons.org/licenses/by-nc/4.0/"));
        EXPECT_FALSE(license->text().contains("example.org"));
    }
}

TEST(VoiceCredit, ReadsOnlyTextMembersOfTheVoiceDescription) {
    TemporaryDirectory voice;
    writeText(voice / "voice.json", R"({"interface": {}, "name": "  Rms  ",
        "description": "Built here.", "license": "BSD-style",
        "licenseLink": "https://example.org/"})");
    VoiceCredit full = VoiceCredit::read(voice.path());
    EXPECT_EQ(full.name, "Rms") << "surrounding blanks are dropped";
    EXPECT_EQ(full.description, "Built here.");
    EXPECT_EQ(full.license, "BSD-style");
    EXPECT_EQ(full.licenseLink, "https://example.org/");

    writeText(voice / "voice.json", R"({"name": 7, "description": "   ",
        "license": ["BSD"], "licenseLink": null})");
    VoiceCredit odd = VoiceCredit::read(voice.path());
    EXPECT_TRUE(odd.name.isEmpty() && odd.description.isEmpty() && odd.license.isEmpty() &&
                odd.licenseLink.isEmpty());

    for (const char* broken : {"{\"name\": \"cut", "[\"name\"]", ""}) {
        writeText(voice / "voice.json", broken);
        EXPECT_TRUE(VoiceCredit::read(voice.path()).name.isEmpty()) << broken;
    }
    EXPECT_TRUE(VoiceCredit::read(voice / "missing").license.isEmpty());
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

TEST(AboutView, LinkTextIsEscapedSoItCannotBecomeMarkup) {
    AboutView view(tablesWith({{"murmela.about.source", "<b>Source</b> & more"},
                               {"murmela.about.espeakLink", "https://example.org/a?b=1&c=2"}}));
    auto* espeak = findNamed<QLabel>(&view, "aboutEspeakLink");
    ASSERT_NE(espeak, nullptr);
    EXPECT_EQ(espeak->textFormat(), Qt::RichText);
    EXPECT_TRUE(espeak->text().contains("&lt;b&gt;Source&lt;/b&gt; &amp; more</a>"));
    EXPECT_TRUE(espeak->text().contains("href=\"https://example.org/a?b=1&amp;c=2\""));
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

TEST(AboutView, EveryShownItemHasANameForTestsAndScreenReaders) {
    AboutView view;
    for (const char* name :
         {"aboutIcon", "aboutName", "aboutModel", "aboutVersion", "aboutLicense",
          "aboutLicenseLink", "aboutKokoro", "aboutKokoroLink", "aboutEspeak", "aboutEspeakLink"}) {
        auto* label = findNamed<QLabel>(&view, name);
        ASSERT_NE(label, nullptr) << name;
        EXPECT_FALSE(label->accessibleName().isEmpty()) << name;
        EXPECT_FALSE(label->accessibleName().startsWith("murmela.")) << name;
    }
    auto* licenses = findNamed<QPushButton>(&view, "aboutLicenses");
    ASSERT_NE(licenses, nullptr);
    EXPECT_EQ(licenses->accessibleName(), text("murmela.about.licenses"));
    EXPECT_FALSE(findNamed<QLabel>(&view, "aboutIcon")->pixmap().isNull());
    EXPECT_EQ(view.width(), designTokens().layout("aboutWidth"));
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
    EXPECT_EQ(first->width(), designTokens().layout("aboutWidth"));
    QRect area = QGuiApplication::primaryScreen()->availableGeometry();
    // Centred on the screen, up to the window frame, whose size is known only once shown.
    QPoint offset = first->geometry().center() - area.center();
    int frameX = (first->frameGeometry().width() - first->width()) / 2;
    int frameY = (first->frameGeometry().height() - first->height()) / 2;
    EXPECT_LE(std::abs(offset.x()), frameX + 1);
    EXPECT_LE(std::abs(offset.y()), frameY + 1);

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
    void ShowItems(const QStringList& uris, const QString& startupId) {
        Q_UNUSED(startupId);
        shown.append(uris);
    }
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

TEST(RevealLicenses, FileManagerIsAskedToShowTheFolder) {
    QString address = murmela::testing::privateSessionBusAddress();
    if (address.isEmpty()) {
        GTEST_SKIP() << "no dbus-daemon to run a test bus";
    }
    QDBusConnection service = QDBusConnection::connectToBus(address, "fileManager");
    ASSERT_TRUE(service.isConnected());
    FakeFileManager fileManager;
    ASSERT_TRUE(service.registerObject("/org/freedesktop/FileManager1", &fileManager,
                                       QDBusConnection::ExportAllSlots));
    ASSERT_TRUE(service.registerService("org.freedesktop.FileManager1"));
    OpenedUrls opened;

    TemporaryDirectory licenses;
    AboutView view(UiTables::application(), licenses.path());
    findNamed<QPushButton>(&view, "aboutLicenses")->click();
    ASSERT_TRUE(QTest::qWaitFor([&] { return fileManager.shown.size() == 1; }));
    EXPECT_EQ(
        fileManager.shown.front(),
        QStringList{
            QUrl::fromLocalFile(QString::fromStdString(licenses.path().string())).toString()});
    QTest::qWait(50);
    EXPECT_TRUE(opened.urls.isEmpty()) << "the folder is shown, not opened";

    service.unregisterService("org.freedesktop.FileManager1");
    service.unregisterObject("/org/freedesktop/FileManager1");
    QDBusConnection::disconnectFromBus("fileManager");
}

TEST(RevealLicenses, WithoutFileManagerTheFolderIsOpened) {
    TemporaryDirectory licenses;
    QUrl folder = QUrl::fromLocalFile(QString::fromStdString(licenses.path().string()));
    {
        // A bus on which nobody answers for the file manager.
        OpenedUrls opened;
        revealInFileManager(licenses.path());
        ASSERT_TRUE(QTest::qWaitFor([&] { return opened.urls.size() == 1; }));
        EXPECT_EQ(opened.urls.front(), folder);
    }
    {
        // No bus at all.
        OpenedUrls opened;
        revealInFileManager(licenses.path(), QDBusConnection("murmela-no-such-connection"));
        ASSERT_TRUE(QTest::qWaitFor([&] { return opened.urls.size() == 1; }));
        EXPECT_EQ(opened.urls.front(), folder);
    }
}

}  // namespace
}  // namespace murmela::ui

#include "about_view_test.moc"
