#pragma once

#include "TarnSystem/JsonFile.h"
#include "TarnSystem/Log.h"
#include "TarnSystem/Preferences.h"

#include <optional>
#include <string>
#include <vector>

namespace tarn {

/// Preferences kept in JSON files, one object of keys and values a layer, for systems that
/// have no preferences store of their own. One set of files holds one application's settings.
///
/// The first layer that holds a key counts. The first is management's, and forces its keys. The last is
/// the machine's, the one that is written; keys that are not set there stay as they are, comments are not
/// kept. A file that is not a JSON object is reported once on the log with its name, line and column; the
/// other layers still count, and it is never overwritten. A layer is read when a key is looked for in it, so
/// that whoever asks only what is forced needs no access to the others.
class JsonPreferences final : public Preferences {
public:
    /// Paths from the strongest layer to the weakest; the last is the machine's.
    JsonPreferences(const std::vector<std::string> &layers, Log &log);

    void refresh(const std::string &applicationID) override;
    std::optional<Value> copyAppValue(const std::string &key, const std::string &applicationID) override;
    bool isForced(const std::string &key, const std::string &applicationID) override;
    void setMachineValue(const std::string &key, const Value &value,
                         const std::string &applicationID) override;
    bool synchronizeMachine(const std::string &applicationID) override;

private:
    struct Layer {
        JsonFile file;
        bool isRead = false;
        std::optional<Value> values = std::nullopt;
    };

    const Value *find(Layer &layer, const std::string &key);

    std::vector<Layer> layers_;
    Value::Dictionary unsaved_;
};

} // namespace tarn
