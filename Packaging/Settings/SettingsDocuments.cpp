#include "SettingsDocuments.h"

#include "PropertyList.h"
#include "TarnCore/ApplicationID.h"
#include "TarnSystem/Json.h"
#include "TarnSystem/SettingTexts.h"
#include "TarnSystem/Settings.h"

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <string_view>

namespace tarn::documents {
namespace {

using Type = Setting::Type;

const std::string domain = AppInfo::identifier;
// The version from which on older names of settings are there only for profiles that have them.
constexpr const char *deprecatedSince = "0.1.0";
constexpr const char *exampleFeed = "https://updates.example.com/tarnlink.json";

// Both rise whenever what the manifest says changes: of two manifests tools take the higher.
constexpr std::int64_t manifestVersion = 2;
constexpr const char *manifestModified = "2026-11-21T22:00:00Z";

std::string in(Language language, const SettingText &text) {
    return std::string(language == Language::english ? text.english : text.german);
}

/// None where the build sets it.
std::optional<Value> fixedDefault(const Setting &setting) {
    if (setting.type() == Type::httpsAddress)
        return std::nullopt;
    return setting.value(DaemonConfig());
}

std::string code(std::string_view text) {
    return "`" + std::string(text) + "`";
}

std::string valueColumn(const Setting &setting, Language language) {
    const bool isEnglish = language == Language::english;
    const std::string either = isEnglish ? " or " : " oder ";
    switch (setting.type()) {
    case Type::truth:
        return "`true`" + either + "`false`";
    case Type::word: {
        std::string list;
        const auto words = setting.words();
        for (std::size_t i = 0; i < words.size(); ++i)
            list += (i == 0                  ? ""
                     : i + 1 == words.size() ? either
                                             : ", ") +
                    code("\"" + std::string(words[i]) + "\"");
        return list;
    }
    case Type::text:
        return isEnglish ? "text" : "Text";
    case Type::httpsAddress:
        return isEnglish ? "https address" : "https-Adresse";
    case Type::seconds:
        return isEnglish ? "seconds" : "Sekunden";
    case Type::count:
        break;
    }
    std::string text = isEnglish ? "whole number" : "ganze Zahl";
    if (setting.range)
        text += ", " + std::to_string(setting.range->lowest) + (isEnglish ? " to " : " bis ") +
                std::to_string(setting.range->highest);
    return text;
}

std::string table(Language language) {
    const bool isEnglish = language == Language::english;
    std::string text = isEnglish ? "| key | value | default | what it does |\n|---|---|---|---|\n"
                                 : "| Schlüssel | Wert | Standard | Wirkung |\n|---|---|---|---|\n";
    for (const auto &setting : settings::all()) {
        const auto &texts = SettingTexts::of(setting.key);
        const auto value = fixedDefault(setting);
        text += "| " + code(setting.key) + " | " + valueColumn(setting, language) + " | " +
                (value       ? code(json::serialize(*value))
                 : isEnglish ? "set by the build"
                             : "vom Hersteller gesetzt") +
                " | **" + in(language, texts.title) + ".** " + in(language, texts.description) + " |\n";
    }
    return text;
}

void replace(std::string &text, std::string_view mark, const std::string &content) {
    const auto at = text.find(mark);
    if (at == text.npos || text.find(mark, at + 1) != text.npos)
        throw std::logic_error("the frame must hold " + std::string(mark) + " once");
    text.replace(at, mark.size(), content);
}

/// Lines of at most a hundred columns, each begun by `begin`.
std::string wrapped(std::string_view text, const std::string &begin) {
    constexpr std::size_t width = 100;
    std::string result;
    while (!text.empty()) {
        auto length = std::min(text.size(), width - begin.size());
        if (length < text.size())
            length = text.rfind(' ', length);
        result += begin + std::string(text.substr(0, length)) + "\n";
        text.remove_prefix(std::min(text.size(), length + 1));
    }
    return result;
}

/// A key that every payload of a profile has; its value is the default.
struct PayloadKey {
    const char *name;
    SettingText title;
    SettingText description;
    Value value;
    const char *format = nullptr;
};

Value::Array payloadKeys(Language language) {
    const PayloadKey keys[] = {
        {"PayloadDisplayName",
         {"Name of the settings", "Name der Einstellungen"},
         {"What people read in the list of profiles.", "Was in der Liste der Profile zu lesen ist."},
         "Tarnlink"},
        {"PayloadIdentifier",
         {"Identifier of the settings", "Kennung der Einstellungen"},
         {"Stays the same when the profile is replaced by a newer one.",
          "Bleibt gleich, wenn das Profil durch ein neueres ersetzt wird."},
         domain},
        {"PayloadType",
         {"Preference domain", "Einstellungsdomäne"},
         {"The domain that is managed.", "Die Domäne, die verwaltet wird."},
         domain},
        {"PayloadUUID",
         {"UUID of the settings", "UUID der Einstellungen"},
         {"Unique to this profile.", "Nur in diesem Profil vorhanden."},
         "",
         "^[0-9A-Fa-f]{8}(-[0-9A-Fa-f]{4}){3}-[0-9A-Fa-f]{12}$"},
        {"PayloadVersion",
         {"Version of the form", "Version der Form"},
         {"Always 1.", "Immer 1."},
         std::int64_t{1}},
    };
    Value::Array result;
    for (const auto &key : keys)
        result.push_back(Value::Dictionary{{"pfm_name", key.name},
                                           {"pfm_title", in(language, key.title)},
                                           {"pfm_description", in(language, key.description)},
                                           {"pfm_type", key.value.string() ? "string" : "integer"},
                                           {"pfm_default", key.value},
                                           {"pfm_format", key.format ? Value(key.format) : Value()},
                                           {"pfm_require", "always"}});
    return result;
}

const char *manifestType(Type type) {
    return type == Type::truth     ? "boolean"
           : type == Type::seconds ? "real"
           : type == Type::count   ? "integer"
                                   : "string";
}

Value manifestKey(const Setting &setting, Language language) {
    const auto &texts = SettingTexts::of(setting.key);
    Value key = Value::Dictionary{{"pfm_name", setting.key},
                                  {"pfm_title", in(language, texts.title)},
                                  {"pfm_description", in(language, texts.description)},
                                  {"pfm_type", manifestType(setting.type())}};
    // An editor that fills in defaults must not set both names of a setting.
    if (setting.olderNameOf)
        key.set("pfm_app_deprecated", deprecatedSince);
    else if (auto value = fixedDefault(setting))
        key.set("pfm_default", *std::move(value));
    if (setting.range) {
        key.set("pfm_range_min", setting.range->lowest);
        key.set("pfm_range_max", setting.range->highest);
    }
    if (setting.type() == Type::seconds)
        key.set("pfm_value_unit", language == Language::english ? "seconds" : "Sekunden");
    if (setting.type() == Type::httpsAddress) {
        key.set("pfm_format", "^https://.+$");
        key.set("pfm_value_placeholder", exampleFeed);
    }
    if (setting.words().empty())
        return key;
    Value::Array words, meanings;
    for (const auto word : setting.words()) {
        const auto found = std::ranges::find(texts.words, word, &SettingTexts::Word::word);
        if (found == texts.words.end())
            throw std::logic_error("no text for the word " + std::string(word));
        words.emplace_back(std::string(word));
        meanings.emplace_back(in(language, found->meaning));
    }
    key.set("pfm_range_list", std::move(words));
    key.set("pfm_range_list_titles", std::move(meanings));
    return key;
}

} // namespace

std::string configurationPage(std::string frame) {
    replace(frame, "@SETTINGS@\n", table(Language::english));
    replace(frame, "@EINSTELLUNGEN@\n", table(Language::german));
    return frame;
}

std::string managedExample() {
    std::string text =
        wrapped("What administrators force on this computer; nobody else can change it. Copy this file to "
                "/etc/tarnlink/managed.json and remove the two slashes before each setting that is to be "
                "forced. The values are the defaults; where a setting stays commented out, what users and "
                "this computer have set counts.",
                "// ") +
        "//\n" +
        wrapped("A file with a mistake is ignored as a whole: the log names the line and the column, and "
                "nothing is forced until it is mended.",
                "// ") +
        "{\n";
    const std::string begin = "    // ";
    for (const auto &setting : settings::all()) {
        if (setting.olderNameOf)
            continue;
        const auto &texts = SettingTexts::of(setting.key);
        const auto value = fixedDefault(setting);
        text += wrapped(std::string(texts.title.english) + ".", begin);
        text += wrapped(texts.description.english, begin);
        if (!setting.words().empty() || setting.range) {
            auto values = valueColumn(setting, Language::english);
            std::erase(values, '`');
            text += wrapped("Values: " + values + ".", begin);
        }
        if (!value)
            text += wrapped("The build sets it; this is an example.", begin);
        text += begin + "\"" + setting.key + "\": " + json::serialize(value.value_or(exampleFeed)) + ",\n\n";
    }
    return text + "    \"Comment\": \"Stays last, so that every line above may end with a comma.\"\n}\n";
}

std::string preferenceManifest(Language language) {
    auto keys = payloadKeys(language);
    for (const auto &setting : settings::all())
        keys.push_back(manifestKey(setting, language));
    const bool isEnglish = language == Language::english;
    return propertylist::serialize(Value::Dictionary{
        {"pfm_title", "Tarnlink"},
        {"pfm_description", isEnglish ? "Keeps a computer from being on two networks at once."
                                      : "Verhindert, dass ein Computer in zwei Netzen zugleich ist."},
        {"pfm_domain", domain},
        {"pfm_format_version", std::int64_t{1}},
        {"pfm_version", manifestVersion},
        {"pfm_last_modified", manifestModified},
        {"pfm_platforms", Value::strings({"macOS"})},
        {"pfm_macos_min", "13.0"},
        // The daemon is root's: what is managed for one user does not reach it.
        {"pfm_targets", Value::strings({"system", "system-managed"})},
        {"pfm_unique", true},
        {"pfm_interaction", "combined"},
        {"pfm_subkeys", std::move(keys)}});
}

std::string configurationProfile() {
    const Value::Dictionary forced = {{"Enabled", true},
                                      {"TetheringWhileWired", "disable"},
                                      {"MaxPauseMinutes", std::int64_t{60}},
                                      {"UpdateCheck", false}};
    for (const auto &[key, value] : forced) {
        const auto all = settings::all();
        const auto setting = std::ranges::find_if(all, [&](const Setting &one) { return key == one.key; });
        DaemonConfig config;
        if (setting == all.end() || !setting->apply(value, config))
            throw std::logic_error("the profile's " + key + " would be ignored");
    }
    const Value::Dictionary settingsOfDomain = {
        {"Forced", Value::Array{Value::Dictionary{{"mcx_preference_settings", forced}}}}};
    const auto payload = domain + ".profile.settings", profile = domain + ".profile";
    const Value::Dictionary content = {{"PayloadType", "com.apple.ManagedClient.preferences"},
                                       {"PayloadVersion", std::int64_t{1}},
                                       {"PayloadIdentifier", payload},
                                       {"PayloadUUID", propertylist::uuid(payload)},
                                       {"PayloadDisplayName", "Tarnlink"},
                                       {"PayloadContent", Value::Dictionary{{domain, settingsOfDomain}}}};
    return propertylist::serialize(Value::Dictionary{
        {"PayloadType", "Configuration"},
        {"PayloadVersion", std::int64_t{1}},
        {"PayloadIdentifier", profile},
        {"PayloadUUID", propertylist::uuid(profile)},
        {"PayloadScope", "System"},
        {"PayloadDisplayName", "Tarnlink"},
        {"PayloadDescription", "Keeps the protection on, with pauses of an hour at most."},
        {"ConsentText",
         Value::Dictionary{
             {"default", "This profile keeps Tarnlink's protection on. An administrator can pause it "
                         "for an hour at most; updates are distributed by your organisation."},
             {"de", "Dieses Profil hält den Schutz von Tarnlink eingeschaltet. Ein Administrator kann "
                    "ihn höchstens eine Stunde pausieren; Updates verteilt deine Organisation."}}},
        {"PayloadContent", Value::Array{content}}});
}

} // namespace tarn::documents
