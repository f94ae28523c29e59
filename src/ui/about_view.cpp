#include "ui/about_view.h"

#include <QFrame>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>
#include <optional>

#include "build_info.h"
#include "files/files.h"
#include "ui/desktop_services.h"

namespace murmela::ui {
namespace {

// The two lines of a credit sit this close together.
constexpr int creditLineSpacing = 2;

QLabel* centredLabel(const QString& text, const QFont& font, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    label->setTextFormat(Qt::PlainText);
    label->setAlignment(Qt::AlignHCenter);
    label->setWordWrap(true);
    label->setFont(font);
    return label;
}

}  // namespace

std::filesystem::path AboutView::defaultLicensesFolder() {
    return resourceDirectory().value_or(std::filesystem::path()) / "Licenses";
}

AboutView::AboutView(const UiTables& tables, std::filesystem::path licenses,
                     const VoiceCredit& voice, QWidget* parent)
    : QWidget(parent), tables_(tables) {
    setObjectName(QStringLiteral("aboutView"));
    const QFont textFont = tables_.font(QStringLiteral("status"));
    const int small = tables_.tokens.space(QStringLiteral("sm"));
    const int large = tables_.tokens.space(QStringLiteral("lg"));
    const QString appName = tables_.text(QStringLiteral("murmela.app.name"));

    setFixedWidth(tables_.tokens.layout(QStringLiteral("aboutWidth")));
    auto* layout = new QVBoxLayout(this);
    layout->setSpacing(small);
    layout->setContentsMargins(large, large, large, large);

    const int iconSize = tables_.tokens.layout(QStringLiteral("iconSize"));
    auto* icon = new QLabel(this);
    icon->setObjectName(QStringLiteral("aboutIcon"));
    icon->setPixmap(applicationIconPixmap(iconSize, devicePixelRatioF()));
    icon->setFixedSize(iconSize, iconSize);
    icon->setAccessibleName(appName);
    layout->addWidget(icon, 0, Qt::AlignHCenter);

    auto* name = centredLabel(appName, tables_.font(QStringLiteral("aboutTitle"), true), this);
    name->setObjectName(QStringLiteral("aboutName"));
    name->setAccessibleName(appName);
    layout->addWidget(name);

    auto* model = centredLabel(voice.description.isEmpty()
                                   ? tables_.text(QStringLiteral("murmela.about.model"))
                                   : voice.description,
                               textFont, this);
    model->setObjectName(QStringLiteral("aboutModel"));
    model->setAccessibleName(model->text());
    layout->addWidget(model);

    auto* version = centredLabel(
        tables_.text(QStringLiteral("murmela.about.version"),
                     {{QStringLiteral("version"), QString::fromUtf8(buildinfo::version)},
                      {QStringLiteral("build"), QString::fromUtf8(buildinfo::build)}}),
        textFont, this);
    version->setObjectName(QStringLiteral("aboutVersion"));
    version->setAccessibleName(version->text());
    followForegroundColor(version, tables_.tokens.color(QStringLiteral("textSecondary")));
    layout->addWidget(version);

    auto* divider = new QFrame(this);
    divider->setFrameShape(QFrame::HLine);
    divider->setFrameShadow(QFrame::Sunken);
    layout->addSpacing(small);
    layout->addWidget(divider);
    layout->addSpacing(small);

    // A licence link goes with its own licence name only: a voice that names no licence gets
    // the table's credit, never its link under another name.
    const bool ownLicense = !voice.license.isEmpty();
    addCredit(
        layout, QStringLiteral("aboutLicense"),
        tables_.text(QStringLiteral("murmela.about.license")),
        ownLicense ? voice.license : QStringLiteral("CC BY-NC 4.0"),
        ownLicense ? voice.licenseLink : tables_.text(QStringLiteral("murmela.about.licenseLink")));
    // A voice that gives its name is credited by it, without a link.
    const bool ownName = !voice.name.isEmpty();
    addCredit(layout, QStringLiteral("aboutKokoro"),
              tables_.text(ownName ? QStringLiteral("murmela.about.voice")
                                   : QStringLiteral("murmela.about.kokoro")),
              ownName ? voice.name : QStringLiteral("Kokoro-82M"),
              ownName ? QString() : tables_.text(QStringLiteral("murmela.about.kokoroLink")));
    addCredit(layout, QStringLiteral("aboutEspeak"),
              tables_.text(QStringLiteral("murmela.about.espeak")),
              tables_.text(QStringLiteral("murmela.about.source")),
              tables_.text(QStringLiteral("murmela.about.espeakLink")));

    auto* showLicenses =
        new QPushButton(tables_.text(QStringLiteral("murmela.about.licenses")), this);
    showLicenses->setObjectName(QStringLiteral("aboutLicenses"));
    showLicenses->setAccessibleName(showLicenses->text());
    showLicenses->setFont(textFont);
    connect(showLicenses, &QPushButton::clicked, this,
            [folder = std::move(licenses)] { revealInFileManager(folder); });
    layout->addSpacing(small);
    layout->addWidget(showLicenses, 0, Qt::AlignHCenter);
}

void AboutView::addCredit(QBoxLayout* layout, const QString& name, const QString& creditText,
                          const QString& linkText, const QString& linkTarget) {
    const QFont textFont = tables_.font(QStringLiteral("status"));
    auto* credit = new QVBoxLayout;
    credit->setSpacing(creditLineSpacing);

    auto* text = centredLabel(creditText, textFont, this);
    text->setObjectName(name);
    text->setAccessibleName(text->text());
    credit->addWidget(text);

    auto* link = centredLabel(linkText, textFont, this);
    link->setObjectName(name + QStringLiteral("Link"));
    link->setAccessibleName(linkText);
    if (std::optional<QUrl> target = linkAddress(linkTarget)) {
        link->setTextFormat(Qt::RichText);
        link->setText(QStringLiteral("<a href=\"%1\">%2</a>")
                          .arg(target->toString(QUrl::FullyEncoded).toHtmlEscaped(),
                               linkText.toHtmlEscaped()));
        link->setTextInteractionFlags(Qt::TextBrowserInteraction);
        link->setOpenExternalLinks(true);
        link->setAccessibleDescription(target->toString());
    }
    credit->addWidget(link);
    layout->addLayout(credit);
}

}  // namespace murmela::ui
