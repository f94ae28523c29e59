#include "ui/voice_credit.h"

#include <QJsonObject>
#include <QJsonValue>
#include <optional>

#include "engine/resources.h"
#include "ui/json_resource.h"

namespace murmela::ui {

VoiceCredit VoiceCredit::read(const std::filesystem::path& voiceDirectory) {
    std::optional<QJsonObject> description =
        readJsonObject(voiceDirectory / "voice.json", "voice credit");
    if (!description) {
        return {};
    }
    auto member = [&](const char* key) {
        return description->value(QLatin1String(key)).toString().trimmed();
    };
    return {member("name"), member("description"), member("license"), member("licenseLink")};
}

VoiceCredit VoiceCredit::installed() {
    return read(resourceDirectory().value_or(std::filesystem::path()) / "Voice");
}

}  // namespace murmela::ui
