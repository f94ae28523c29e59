#include "ui/text_table.h"

#include <QJsonObject>
#include <QJsonValue>
#include <optional>
#include <string>

#include "logging/log.h"
#include "ui/ui_tables.h"

namespace murmela::ui {

TextTable TextTable::read(const std::filesystem::path& file) {
    std::optional<QJsonObject> object = readJsonObject(file, "text table");
    if (!object) {
        return {};
    }
    QHash<QString, QString> entries;
    for (auto member = object->begin(); member != object->end(); ++member) {
        if (!member.value().isString()) {
            // A table with a non-text member is not a table of texts: showing keys everywhere
            // makes the damage obvious instead of hiding it in one corner.
            log::error("murmelaUi", "text table: " + file.string() + ": member \"" +
                                        member.key().toStdString() + "\" is not a text");
            return {};
        }
        entries.insert(member.key(), member.value().toString());
    }
    return TextTable(std::move(entries));
}

QString TextTable::text(const QString& key, const TextArguments& arguments) const {
    QString result = entries_.value(key, key);
    for (auto argument = arguments.begin(); argument != arguments.end(); ++argument) {
        result.replace(QLatin1Char('{') + argument.key() + QLatin1Char('}'), argument.value());
    }
    return result;
}

const TextTable& textTable() {
    static const TextTable table = [] {
        std::optional<std::filesystem::path> file = resourceFile("murmela-copy.json");
        return file ? TextTable::read(*file) : TextTable();
    }();
    return table;
}

QString text(const QString& key, const TextArguments& arguments) {
    return textTable().text(key, arguments);
}

}  // namespace murmela::ui
