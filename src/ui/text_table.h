#pragma once
// Every text the interface shows, looked up by a dotted key ("murmela.speak") in the table
// "murmela-copy.json" of the resources.

#include <QHash>
#include <QString>
#include <filesystem>
#include <utility>

namespace murmela::ui {

// Named arguments of a text: "{name}" in the text is replaced by the value.
using TextArguments = QHash<QString, QString>;

class TextTable {
public:
    // An empty table: every lookup shows its key.
    TextTable() = default;
    explicit TextTable(QHash<QString, QString> entries) : entries_(std::move(entries)) {}

    // The table in `file`, a JSON object whose members are all texts. A file that is missing,
    // unreadable or holds anything else gives an empty table and one error log line.
    static TextTable read(const std::filesystem::path& file);

    // The text for `key`, or the key itself when the table has none, with every "{name}"
    // replaced literally by its argument. A placeholder without an argument stays as written.
    QString text(const QString& key, const TextArguments& arguments = {}) const;

    bool isEmpty() const { return entries_.isEmpty(); }

private:
    QHash<QString, QString> entries_;
};

// The application's table, read from the resource directory on first use and kept for the
// life of the process.
const TextTable& textTable();

// Shorthand for textTable().text(key, arguments).
QString text(const QString& key, const TextArguments& arguments = {});

}  // namespace murmela::ui
