#pragma once
// Which texts the interface accepts as link targets.

#include <QString>
#include <QUrl>
#include <optional>

namespace murmela::ui {

// `text` as a link target when it is an absolute http, https or mailto address (with a host
// for the web ones, an address for mail); nothing otherwise.
std::optional<QUrl> linkAddress(const QString& text);

}  // namespace murmela::ui
