#pragma once
// The outcome of the last operation, shown until the next one clears or replaces it.

#include <QMetaType>
#include <QString>

#include <optional>

namespace murmela {

struct Notice {
    enum class Kind {
        saved,       // a WAV file was written; `name` is its file name
        empty,       // the text gave nothing to synthesise
        failed,      // speaking could not start or failed
        saveFailed,  // saving failed
    };

    Kind kind;
    QString name;  // only for `saved`

    static Notice saved(QString fileName) { return {Kind::saved, std::move(fileName)}; }
    static Notice empty() { return {Kind::empty, {}}; }
    static Notice failed() { return {Kind::failed, {}}; }
    static Notice saveFailed() { return {Kind::saveFailed, {}}; }

    // The same kind and, for `saved`, the same file name.
    friend bool operator==(const Notice& a, const Notice& b) {
        return a.kind == b.kind && (a.kind != Kind::saved || a.name == b.name);
    }
};

// "saved(<name>)", "empty", "failed" or "saveFailed"; "none" for no notice.
QString describe(const std::optional<Notice>& notice);

}  // namespace murmela

Q_DECLARE_METATYPE(murmela::Notice)
Q_DECLARE_METATYPE(std::optional<murmela::Notice>)
