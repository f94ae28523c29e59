#include "ui/link_address.h"

namespace murmela::ui {

std::optional<QUrl> linkAddress(const QString& text) {
    QUrl url(text, QUrl::StrictMode);
    if (!url.isValid()) {
        return std::nullopt;
    }
    QString scheme = url.scheme();
    bool web = (scheme == QLatin1String("http") || scheme == QLatin1String("https")) &&
               !url.host().isEmpty();
    bool mail = scheme == QLatin1String("mailto") && url.path().contains(QLatin1Char('@'));
    if (!web && !mail) {
        return std::nullopt;
    }
    return url;
}

}  // namespace murmela::ui
