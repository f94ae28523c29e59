#pragma once
// The content of the About window: icon, name, model, version, credits with their links, and
// a button that shows the licence texts in the file manager.

#include <QWidget>
#include <filesystem>

#include "ui/ui_tables.h"

class QBoxLayout;

namespace murmela::ui {

class AboutView final : public QWidget {
public:
    // `licenses` is the folder the Licenses button shows.
    explicit AboutView(const UiTables& tables = UiTables::application(),
                       std::filesystem::path licenses = defaultLicensesFolder(),
                       QWidget* parent = nullptr);

    // The "Licenses" folder of the resource directory.
    static std::filesystem::path defaultLicensesFolder();

private:
    void addCredit(QBoxLayout* layout, const QString& name, const QString& textKey,
                   const QString& linkText, const QString& linkKey);

    UiTables tables_;
};

}  // namespace murmela::ui
