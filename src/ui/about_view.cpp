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

AboutView::AboutView(const UiTables& tables, std::filesystem::path licenses, QWidget* parent)
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

    auto* model = centredLabel(tables_.text(QStringLiteral("murmela.about.model")), textFont, this);
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

    addCredit(layout, QStringLiteral("aboutLicense"), QStringLiteral("murmela.about.license"),
              QStringLiteral("CC BY-NC 4.0"), QStringLiteral("murmela.about.licenseLink"));
    addCredit(layout, QStringLiteral("aboutKokoro"), QStringLiteral("murmela.about.kokoro"),
              QStringLiteral("Kokoro-82M"), QStringLiteral("murmela.about.kokoroLink"));
    addCredit(layout, QStringLiteral("aboutEspeak"), QStringLiteral("murmela.about.espeak"),
              tables_.text(QStringLiteral("murmela.about.source")),
              QStringLiteral("murmela.about.espeakLink"));

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

void AboutView::addCredit(QBoxLayout* layout, const QString& name, const QString& textKey,
                          const QString& linkText, const QString& linkKey) {
    const QFont textFont = tables_.font(QStringLiteral("status"));
    auto* credit = new QVBoxLayout;
    credit->setSpacing(creditLineSpacing);

    auto* text = centredLabel(tables_.text(textKey), textFont, this);
    text->setObjectName(name);
    text->setAccessibleName(text->text());
    credit->addWidget(text);

    auto* link = centredLabel(linkText, textFont, this);
    link->setObjectName(name + QStringLiteral("Link"));
    link->setAccessibleName(linkText);
    if (std::optional<QUrl> target = linkAddress(tables_.text(linkKey))) {
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
