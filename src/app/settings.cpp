#include "app/settings.h"

#include <cmath>
#include <cstdlib>

namespace murmela {
namespace {

constexpr const char* organisation = "murmela";
constexpr const char* standardName = "murmela";

QString qualified(std::string_view key) {
    return QString::fromUtf8(key.data(), static_cast<qsizetype>(key.size()));
}

}  // namespace

ArgumentDomain ArgumentDomain::fromCommandLine(int argc, const char* const* argv) {
    ArgumentDomain domain;
    for (int i = 1; i + 1 < argc; ++i) {
        std::string_view argument = argv[i];
        if (argument.size() < 2 || argument[0] != '-') {
            continue;
        }
        domain.values_[std::string(argument.substr(1))] = argv[i + 1];
        ++i;
    }
    return domain;
}

std::optional<std::string> ArgumentDomain::value(std::string_view key) const {
    auto found = values_.find(key);
    if (found == values_.end()) {
        return std::nullopt;
    }
    return found->second;
}

bool isUsableSuiteName(const QString& name) {
    return !name.isEmpty() && name != standardName && name != "." && name != ".." &&
           !name.contains('/') && !name.contains(QChar(0));
}

SettingsStore::SettingsStore(ArgumentDomain arguments, const QString& name)
    : arguments_(std::move(arguments)),
      settings_(std::make_unique<QSettings>(QSettings::IniFormat, QSettings::UserScope,
                                            organisation, name)) {}

SettingsStore SettingsStore::standard(ArgumentDomain arguments) {
    return SettingsStore(std::move(arguments), standardName);
}

SettingsStore SettingsStore::forModel(ArgumentDomain arguments) {
    const char* suite = std::getenv("MURMELA_DEFAULTS_SUITE");
    if (suite != nullptr && isUsableSuiteName(QString::fromUtf8(suite))) {
        return SettingsStore(std::move(arguments), QString::fromUtf8(suite));
    }
    return standard(std::move(arguments));
}

std::optional<QVariant> SettingsStore::value(std::string_view key) const {
    if (std::optional<std::string> given = arguments_.value(key)) {
        return QVariant(QString::fromStdString(*given));
    }
    QVariant stored = settings_->value(qualified(key));
    if (!stored.isValid()) {
        return std::nullopt;
    }
    return stored;
}

void SettingsStore::setValue(std::string_view key, const QVariant& value) {
    settings_->setValue(qualified(key), value);
    settings_->sync();
}

double normalisedSpeed(double value) {
    if (!std::isfinite(value)) {
        return 1.0;
    }
    const double clamped = std::fmin(std::fmax(value, minimumSpeed), maximumSpeed);
    // std::round takes halves away from zero. The second rounding removes what the first
    // leaves behind (16 * 0.05 is 0.8000000000000002).
    const double stepped = std::round(clamped / speedStep) * speedStep;
    return std::round(stepped * 100.0) / 100.0;
}

double speedFromSetting(const std::optional<QVariant>& stored) {
    if (!stored) {
        return 1.0;
    }
    bool isNumber = false;
    const double value = stored->toDouble(&isNumber);
    return normalisedSpeed(isNumber ? value : 1.0);
}

}  // namespace murmela
