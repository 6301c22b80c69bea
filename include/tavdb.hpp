// SPDX-License-Identifier: Apache-2.0
/**
 * @file tavdb.hpp
 * The application interface of libtavdb for C++20: tavdb.h with owners that
 * clean up, typed values and results that carry their failure. Header only; a
 * program that uses it links with libtavdb and nothing else.
 *
 * Every function that can fail returns a Result. What tavdb.h leaves in the
 * session record although the call itself returned 0, a failed transfer for
 * one, is a failure here too. A call therefore clears the session's old error.
 *
 * Session and what is made from it belong to one thread at a time, and to the
 * Database that they were opened on: keep that alive longer.
 */
#pragma once

#include <algorithm>
#include <concepts>
#include <cstdint>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "tavdb.h"

namespace tavdb {

/** Why a call failed. */
struct Error {
    int32_t code;         ///< of tavdb_errors.h, or the platform's
    uint32_t detail = 0;  ///< an error number, a hook's result or a key, as the code says

    /** What the code means, for people. */
    constexpr std::string_view sentence() const;
    /** What a caller does about it. */
    constexpr std::string_view action() const;

    /** Equal in both words. */
    bool operator==(const Error &) const = default;
};

/** A value, or the error that stands in its place. */
template <typename T>
class [[nodiscard]] Result {
public:
    /** What a function returns that went well. */
    Result(T value) : content(std::in_place_index<0>, std::move(value)) {}
    /** What a function returns that failed. */
    Result(Error error) : content(std::in_place_index<1>, error) {}

    /** Whether there is a value. */
    explicit operator bool() const {
        return content.index() == 0;
    }
    /** @name Only when there is a value */
    /** @{ */
    T &value() & {
        return *std::get_if<0>(&content);
    }
    const T &value() const & {
        return *std::get_if<0>(&content);
    }
    T &&value() && {
        return std::move(*std::get_if<0>(&content));
    }
    T &operator*() & {
        return value();
    }
    const T &operator*() const & {
        return value();
    }
    T &&operator*() && {
        return std::move(*this).value();
    }
    T *operator->() {
        return &value();
    }
    const T *operator->() const {
        return &value();
    }
    /** @} */
    /** The value, or another one in its place. */
    T valueOr(T instead) const {
        return *this ? value() : std::move(instead);
    }
    /** Only when there is none. */
    const Error &error() const {
        return *std::get_if<1>(&content);
    }

private:
    std::variant<T, Error> content;
};

/** Nothing but whether it went well. */
template <>
class [[nodiscard]] Result<void> {
public:
    Result() = default;
    /** What a function returns that failed. */
    Result(Error error) : failure(error) {}

    /** Whether it went well. */
    explicit operator bool() const {
        return !failure;
    }
    /** Only after a failure. */
    const Error &error() const {
        return *failure;
    }

private:
    std::optional<Error> failure;
};

/** The types that a value has beside texts. */
template <typename T>
concept Number = std::same_as<T, int8_t> || std::same_as<T, int16_t> || std::same_as<T, int32_t> ||
    std::same_as<T, int64_t> || std::same_as<T, uint8_t> || std::same_as<T, uint16_t> || std::same_as<T, uint32_t> ||
    std::same_as<T, uint64_t> || std::same_as<T, float> || std::same_as<T, double>;

/** Which of a leaf's values. */
enum class Tier { current, defaults, factory };

/** A database that this process is attached to, until the end of its scope. */
class Database {
public:
    /** As tavDBMInit: a process whose attach failed half-way cannot attach again. */
    static Result<Database> attach(const tavDBMDescription &description) {
        int32_t code = 0;
        const int32_t id = tavDBMInit(&description, &code);
        return id >= 0 ? Result<Database>(Database(static_cast<uint32_t>(id))) : Error{code};
    }
    /** Leaves the other one detached, which can only be destroyed or assigned to. */
    Database(Database &&other) noexcept : attached(std::exchange(other.attached, 0)) {}
    /** Changes places: the other one ends what this one was. */
    Database &operator=(Database &&other) noexcept {
        std::swap(attached, other.attached);
        return *this;
    }
    ~Database() {
        if (attached != 0)
            tavDBMTerm(attached);
    }

    /** As tavDBMInitSession takes it. */
    uint32_t id() const {
        return attached;
    }

private:
    explicit Database(uint32_t id) : attached(id) {}

    uint32_t attached;
};

class Lock;
class Children;

/** An open session, until the end of its scope. */
class Session {
public:
    /** As tavDBMInitSession. */
    static Result<Session> open(const Database &database) {
        tavDBMSession record = {};
        const int32_t code = tavDBMInitSession(&record, database.id());
        if (code != 0)
            return Error{code, record.errorDetail};
        return Session(record);
    }
    /** Leaves the other one closed, which can only be destroyed or assigned to. */
    Session(Session &&other) noexcept : session(std::exchange(other.session, {})) {}
    /** Changes places: the other one ends what this one was. */
    Session &operator=(Session &&other) noexcept {
        std::swap(session, other.session);
        return *this;
    }
    ~Session() {
        if (session.sessionId != 0)
            tavDBMTermSession(&session);
    }

    /** The component of a path: absolute when it begins with "/", else below the current component. */
    Result<uint32_t> find(const char *path) {
        return keyed([&] { return tavDBMSearchByName(&session, path); });
    }
    /** The top of the tree. */
    Result<uint32_t> root() {
        return keyed([&] { return tavDBMGetRoot(&session); });
    }
    /** The start of relative searches. */
    Result<void> enter(uint32_t component) {
        const auto entered = keyed([&] { return tavDBMSetCurrentComponent(&session, component); });
        return entered ? Result<void>() : Result<void>(entered.error());
    }
    /** The components directly below a node, in their order. */
    Children children(uint32_t node);

    /**
     * A leaf's number. The type must be the value's own: only a value that is shorter is found out,
     * with TAVDB_ERR_LENGTH.
     */
    template <Number T>
    Result<T> get(uint32_t leaf, Tier tier = Tier::current) {
        T value = {};
        const auto count = read(leaf, tier, &value, sizeof value);
        if (!count)
            return count.error();
        return *count == sizeof value ? Result<T>(value) : Error{TAVDB_ERR_LENGTH};
    }
    /** A leaf's text, up to its NUL. */
    template <std::same_as<std::string> T>
    Result<T> get(uint32_t leaf, Tier tier = Tier::current) {
        const auto size = checked([&] { return tavDBMGetLength(&session, leaf); }, [](int32_t n) { return n >= 0; });
        if (!size)
            return size.error();
        std::string text(static_cast<size_t>(*size), '\0');
        const auto count = read(leaf, tier, text.data(), *size);
        if (!count)
            return count.error();
        text.resize(static_cast<size_t>(*count));
        text.resize(std::min(text.find('\0'), text.size()));
        return text;
    }
    /** Looks the leaf up first. */
    template <typename T>
    Result<T> get(const char *path, Tier tier = Tier::current) {
        const auto leaf = find(path);
        return leaf ? get<T>(*leaf, tier) : Result<T>(leaf.error());
    }

    /**
     * Writes a leaf's current value: a number, whose type must be the value's own, or a text with its NUL,
     * of which what does not fit is cut off.
     */
    template <typename T>
    Result<void> set(uint32_t leaf, const T &value) {
        return write(tavDBMSetGeneric, leaf, value);
    }
    /** The same for the default value. There is no write of the factory value. */
    template <typename T>
    Result<void> setDefault(uint32_t leaf, const T &value) {
        return write(tavDBMSetDefaultGeneric, leaf, value);
    }
    /** Looks the leaf up first. */
    template <typename T>
    Result<void> set(const char *path, const T &value) {
        const auto leaf = find(path);
        return leaf ? set(*leaf, value) : Result<void>(leaf.error());
    }

    /** Waits for a component's lock. */
    Result<Lock> lock(uint32_t component);
    /** The same for a lock that others can share. */
    Result<Lock> lockShared(uint32_t component);
    /** Gives TAVDB_ERR_LOCKED where lock would wait. */
    Result<Lock> tryLock(uint32_t component);
    /** The same for a lock that others can share. */
    Result<Lock> tryLockShared(uint32_t component);

    /** For every function of tavdb.h that has no counterpart here. */
    tavDBMSession *record() {
        return &session;
    }

private:
    friend class Lock;
    friend class Children;

    explicit Session(const tavDBMSession &opened) : session(opened) {}

    Error lastError() const {
        return {static_cast<int32_t>(session.errorCode), session.errorDetail};
    }
    /** A call that failed when its result is not good or left an error behind. */
    template <typename Call, typename IsGood>
    auto checked(Call call, IsGood isGood) -> Result<decltype(call())> {
        session.errorCode = 0;
        session.errorDetail = 0;
        const auto result = call();
        if (isGood(result) && session.errorCode == 0)
            return result;
        return lastError();
    }
    template <typename Call>
    Result<uint32_t> keyed(Call call) {
        return checked(call, [](uint32_t key) { return key != 0; });
    }
    /** Codes that are returned and not recorded, of locks for one, count as well. */
    template <typename Call>
    Result<void> status(Call call) {
        session.errorCode = 0;
        session.errorDetail = 0;
        const int32_t code = call();
        if (code == 0 && session.errorCode == 0)
            return {};
        return session.errorCode != 0 ? lastError() : Error{code};
    }
    Result<int32_t> read(uint32_t leaf, Tier tier, void *buffer, int32_t size) {
        const auto function = tier == Tier::current    ? tavDBMGetGeneric
                              : tier == Tier::defaults ? tavDBMGetDefaultGeneric
                                                       : tavDBMGetFactoryGeneric;
        int32_t count = size;
        const auto done = status([&] { return function(&session, leaf, buffer, &count); });
        return done ? Result<int32_t>(count) : Result<int32_t>(done.error());
    }
    using Write = int32_t (*)(tavDBMSession *, uint32_t, const void *, int32_t);
    /** On a copy of the value, since a hook may change it in place. */
    template <Number T>
    Result<void> write(Write function, uint32_t leaf, T value) {
        return status([&] { return function(&session, leaf, &value, sizeof value); });
    }
    Result<void> write(Write function, uint32_t leaf, std::string text) {
        return status([&] { return function(&session, leaf, text.data(), static_cast<int32_t>(text.size() + 1)); });
    }
    Result<Lock> takeLock(uint32_t component, int32_t mode);

    tavDBMSession session;
};

/** A component's lock, held until the end of its scope. The session must live longer. */
class [[nodiscard]] Lock {
public:
    /** Leaves the other one without a lock. */
    Lock(Lock &&other) noexcept : session(std::exchange(other.session, nullptr)), component(other.component) {}
    /** Changes places: the other one ends what this one was. */
    Lock &operator=(Lock &&other) noexcept {
        std::swap(session, other.session);
        std::swap(component, other.component);
        return *this;
    }
    ~Lock() {
        if (session != nullptr)
            tavDBMUnlock(&session->session, component);
    }

private:
    friend class Session;
    Lock(Session &holder, uint32_t key) : session(&holder), component(key) {}

    Session *session;
    uint32_t component;
};

/**
 * The components directly below a node, for a range-for. Each step is one access. A walk that fails ends;
 * failed() then says why. A chain that runs in a circle, on a damaged medium, ends when it has come round.
 */
class Children {
public:
    /** Goes forward only. */
    class Iterator {
    public:
        /** A key. */
        using value_type = uint32_t;
        /** Asked for by the standard library. */
        using difference_type = std::ptrdiff_t;

        /** A component's key. */
        uint32_t operator*() const {
            return key;
        }
        /** One access. */
        Iterator &operator++() {
            key = children->after(key);
            steps += 1;
            if (key == landmark)
                key = 0;
            if (steps == limit) {  // a new landmark at each power of two is met again in any circle
                landmark = key;
                limit *= 2;
            }
            return *this;
        }
        /** The same. */
        void operator++(int) {
            ++*this;
        }
        /** Whether the walk is over, at the last one or by a failure. */
        bool operator==(std::default_sentinel_t) const {
            return key == 0;
        }

    private:
        friend class Children;
        Iterator(Children *walked, uint32_t first) : children(walked), key(first), landmark(first) {}

        Children *children;
        uint32_t key;
        uint32_t landmark;
        uint32_t steps = 0;
        uint32_t limit = 1;
    };

    /** Reads the node and its first child. */
    Iterator begin() {
        return {this, found(session->checked([&] { return tavDBMGetFirstChild(&session->session, node); },
                                             [](uint32_t) { return true; }))};
    }
    /** Behind the last one. */
    std::default_sentinel_t end() const {
        return {};
    }
    /** Why a walk ended that failed; nothing after one that came to its end. */
    const std::optional<Error> &failed() const {
        return failure;
    }

private:
    friend class Session;
    Children(Session &walker, uint32_t key) : session(&walker), node(key) {}

    uint32_t after(uint32_t key) {
        return found(session->checked([&] { return tavDBMGetNextChild(&session->session, key); },
                                      [](uint32_t) { return true; }));
    }
    uint32_t found(const Result<uint32_t> &key) {
        if (key)
            return *key;
        failure = key.error();
        return 0;
    }

    Session *session;
    uint32_t node;
    std::optional<Error> failure;
};

inline Children Session::children(uint32_t node) {
    return {*this, node};
}

inline Result<Lock> Session::takeLock(uint32_t component, int32_t mode) {
    const auto taken = status([&] { return tavDBMLock(&session, component, mode); });
    return taken ? Result<Lock>(Lock(*this, component)) : Result<Lock>(taken.error());
}

inline Result<Lock> Session::lock(uint32_t component) {
    return takeLock(component, TAVDB_LOCK_WAIT);
}

inline Result<Lock> Session::lockShared(uint32_t component) {
    return takeLock(component, TAVDB_LOCK_WAIT | TAVDB_LOCK_SHARED);
}

inline Result<Lock> Session::tryLock(uint32_t component) {
    return takeLock(component, TAVDB_LOCK_TRY);
}

inline Result<Lock> Session::tryLockShared(uint32_t component) {
    return takeLock(component, TAVDB_LOCK_TRY | TAVDB_LOCK_SHARED);
}

namespace detail {

struct ErrorText {
    int32_t code;
    std::string_view sentence;
    std::string_view action;
};

inline constexpr ErrorText kErrorTexts[] = {
#define TAVDB_ERROR_TEXT(number, name, text, what) {number, text, what},
    TAVDB_ERROR_LIST(TAVDB_ERROR_TEXT)
#undef TAVDB_ERROR_TEXT
};

constexpr ErrorText textOf(int32_t code) {
    for (const ErrorText &text : kErrorTexts)
        if (text.code == code)
            return text;
    return {code, "the platform reports a failure", "see the platform's documentation for the code"};
}

}  // namespace detail

constexpr std::string_view Error::sentence() const {
    return detail::textOf(code).sentence;
}

constexpr std::string_view Error::action() const {
    return detail::textOf(code).action;
}

}  // namespace tavdb
