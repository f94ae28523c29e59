#pragma once
// What every window reads its texts, sizes and colours from. The windows take it as an
// argument so that a test can give them tables of its own; the application passes the
// process-wide ones.

#include <QFont>

#include "ui/design_tokens.h"
#include "ui/text_table.h"

namespace murmela::ui {

struct UiTables {
    TextTable texts;
    DesignTokens tokens;

    // Copies of the process-wide text table and tokens (both share their data).
    static UiTables application() { return {textTable(), designTokens()}; }

    QString text(const QString& key, const TextArguments& arguments = {}) const {
        return texts.text(key, arguments);
    }

    // The system font at the size of the "type" token `key`, optionally semibold.
    QFont font(const QString& key, bool semibold = false) const;
};

}  // namespace murmela::ui
