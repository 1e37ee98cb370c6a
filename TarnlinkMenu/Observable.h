#pragma once

#include <functional>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

namespace tarn {

/// What views watch: tells its observers of every change of a published field.
///
/// Thread: main thread. Ownership: observers must not destroy it from inside a handler; they may subscribe,
///   unsubscribe and change it there.
class Observable {
public:
    using Handler = std::function<void()>;
    /// Ends when the last copy is gone; it may outlive what it watches.
    using Subscription = std::shared_ptr<const void>;

    Observable() = default;
    Observable(const Observable &) = delete;
    Observable &operator=(const Observable &) = delete;

    /// `didChange` is called when a field has its new value, `willChange` while it still has the old one.
    [[nodiscard]] Subscription observe(Handler didChange, Handler willChange = {}) {
        std::erase_if(observers_, [](const auto &observer) { return observer.expired(); });
        const auto added =
            std::make_shared<const Observer>(Observer{std::move(willChange), std::move(didChange)});
        observers_.push_back(added);
        return added;
    }

protected:
    ~Observable() = default;

    /// Nobody is told of a value that is there already.
    template <class Field> void publish(Field &field, std::type_identity_t<Field> value) {
        if (field == value)
            return;
        tell(&Observer::willChange);
        field = std::move(value);
        tell(&Observer::didChange);
    }

private:
    struct Observer {
        Handler willChange;
        Handler didChange;
    };

    void tell(Handler Observer::*which) const {
        // A copy: handlers may change the list.
        const auto told = observers_;
        for (const auto &weak : told)
            if (const auto observer = weak.lock(); observer && (*observer).*which)
                ((*observer).*which)();
    }

    std::vector<std::weak_ptr<const Observer>> observers_;
};

} // namespace tarn
