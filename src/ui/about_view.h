#pragma once
// The content of the About window: icon, name, model, version, credits with their links, and
// a button that shows the licence texts in the file manager. What the voice says about itself
// (its voice.json) takes the place of the table's model description and model credits.

#include <QWidget>
#include <filesystem>

#include "ui/ui_tables.h"

class QBoxLayout;

namespace murmela::ui {

class AboutView final : public QWidget {
public:
    // `licenses` is the folder the Licenses button shows; `voice` is what the voice says about
    // itself.
    explicit AboutView(const UiTables& tables = UiTables::application(),
                       std::filesystem::path licenses = defaultLicensesFolder(),
                       const VoiceCredit& voice = VoiceCredit::installed(),
                       QWidget* parent = nullptr);

    // The "Licenses" folder of the resource directory.
    static std::filesystem::path defaultLicensesFolder();

private:
    // A text and below it `linkText`, a link when `linkTarget` is a valid address.
    void addCredit(QBoxLayout* layout, const QString& name, const QString& creditText,
                   const QString& linkText, const QString& linkTarget);

    UiTables tables_;
};

}  // namespace murmela::ui
