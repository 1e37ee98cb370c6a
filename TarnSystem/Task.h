#pragma once

#include "TarnSystem/MainActor.h"

#include <atomic>
#include <coroutine>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <variant>

namespace tarn {

template <class T> class Task;

namespace detail {

struct TaskPromiseBase {
    std::coroutine_handle<> continuation = std::noop_coroutine();
    std::exception_ptr error;

    struct FinalAwaiter {
        bool await_ready() const noexcept { return false; }
        template <class Promise>
        std::coroutine_handle<> await_suspend(std::coroutine_handle<Promise> finished) const noexcept {
            return finished.promise().continuation;
        }
        void await_resume() const noexcept {}
    };

    std::suspend_always initial_suspend() const noexcept { return {}; }
    FinalAwaiter final_suspend() const noexcept { return {}; }
    void unhandled_exception() noexcept { error = std::current_exception(); }
};

template <class T> struct TaskPromise : TaskPromiseBase {
    std::optional<T> result;

    Task<T> get_return_object();
    void return_value(T value) { result = std::move(value); }
};

template <> struct TaskPromise<void> : TaskPromiseBase {
    Task<void> get_return_object();
    void return_void() const noexcept {}
};

} // namespace detail

/// Sequential asynchronous work with one result. It starts when it is awaited and resumes its
/// caller when it ends; an exception goes to the caller.
///
/// Thread: the main actor's throughout. Ownership: the task owns its frame; destroy it only
///   before it was awaited or after it ended.
template <class T> class [[nodiscard]] Task {
public:
    using promise_type = detail::TaskPromise<T>;

    explicit Task(std::coroutine_handle<promise_type> frame) : frame_(frame) {}
    Task(Task &&other) noexcept : frame_(std::exchange(other.frame_, nullptr)) {}
    Task &operator=(Task &&) = delete;
    ~Task() {
        if (frame_)
            frame_.destroy();
    }

    bool await_ready() const noexcept { return false; }
    std::coroutine_handle<> await_suspend(std::coroutine_handle<> caller) noexcept {
        frame_.promise().continuation = caller;
        return frame_;
    }
    T await_resume() {
        if (frame_.promise().error)
            std::rethrow_exception(frame_.promise().error);
        if constexpr (!std::is_void_v<T>)
            return *std::move(frame_.promise().result);
    }

private:
    std::coroutine_handle<promise_type> frame_;
};

namespace detail {

template <class T> Task<T> TaskPromise<T>::get_return_object() {
    return Task<T>(std::coroutine_handle<TaskPromise<T>>::from_promise(*this));
}

inline Task<void> TaskPromise<void>::get_return_object() {
    return Task<void>(std::coroutine_handle<TaskPromise<void>>::from_promise(*this));
}

struct Detached {
    struct promise_type {
        Detached get_return_object() const noexcept { return {}; }
        std::suspend_never initial_suspend() const noexcept { return {}; }
        std::suspend_never final_suspend() const noexcept { return {}; }
        void return_void() const noexcept {}
        [[noreturn]] void unhandled_exception() const noexcept { std::terminate(); }
    };
};

inline Detached runDetached(Task<void> task) {
    co_await task;
}

} // namespace detail

/// Starts a task that nobody waits for. An exception that leaves it ends the process.
inline void detach(Task<void> task) {
    detail::runDetached(std::move(task));
}

/// Awaits an operation that reports through a callback.
///
///     const int answer = co_await Callback<int>(actor, [&](Callback<int>::Resume resume) { ... });
///
/// `begin` is called at once with a function that takes the result. That function may be called
/// from any thread and also from inside `begin`; only its first call counts. The coroutine goes
/// on on the main actor.
template <class T> class Callback {
public:
    using Resume = std::function<void(T)>;

    Callback(MainActor &actor, std::function<void(Resume)> begin)
        : begin_(std::move(begin)), state_(std::make_shared<State>(actor)) {}

    bool await_ready() const noexcept { return false; }
    bool await_suspend(std::coroutine_handle<> caller) {
        const auto state = state_;
        state->caller = caller;
        begin_([state](T result) {
            if (state->claimed.exchange(true))
                return;
            state->result = std::move(result);
            // The second of the two, suspension and result, goes on.
            if (!state->met.exchange(true))
                return;
            if (state->actor.isCurrent())
                state->caller.resume();
            else
                state->actor.post([state] { state->caller.resume(); });
        });
        return !state->met.exchange(true);
    }
    T await_resume() { return *std::move(state_->result); }

private:
    struct State {
        explicit State(MainActor &owner) : actor(owner) {}
        MainActor &actor;
        std::coroutine_handle<> caller;
        std::optional<T> result;
        std::atomic<bool> claimed = false;
        std::atomic<bool> met = false;
    };

    std::function<void(Resume)> begin_;
    std::shared_ptr<State> state_;
};

} // namespace tarn
