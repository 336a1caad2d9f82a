// The history's database, written: one connection, used by one thread.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "common/sqlite.h"
#include "common/times.h"
#include "model/event.h"

namespace ominspect::gateway {

struct Retention {
    std::chrono::hours age{24 * 90};
    std::uint64_t bytes = 64ULL << 20U;
};

class Store {
public:
    // Makes the database where there is none, and brings an older one to the present form. One that is damaged is set
    // aside as PATH.damaged; `setAside` says so.
    static Result<std::unique_ptr<Store>> Open(const std::string& path, const std::string& bus, bool& setAside);
    ~Store();
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    std::uint64_t LastSeq() const { return lastSeq_; }

    // Until when the terminal is known to have been watched; nothing in a new database.
    std::optional<TimePoint> WatchedUntil();

    // All of them, or none: they are kept when this returns, whatever becomes of the process. `now` is noted as the
    // time until which the terminal was watched.
    std::optional<Error> Write(std::span<const Event> events, TimePoint now);

    // Deletes rows that are too old or too many, a bounded number at once; true: there are more to delete. Without a
    // time nothing is too old.
    Result<bool> Retain(const Retention& retention, std::optional<TimePoint> now);

    // After an error that IsFull: gives up the reserved room, deletes the oldest rows, and lets the file grow no more.
    // False: none could be deleted.
    bool MakeRoom();
    static bool IsFull(const Error& error);

    // Lets the file grow again, if the disk has room by now. False: not yet.
    bool Grow();

    std::uint64_t Bytes();

private:
    Store(std::string path, sqlite::Database database) : path_(std::move(path)), database_(std::move(database)) {}
    static Result<std::unique_ptr<Store>> OpenOnce(const std::string& path, const std::string& bus);
    std::optional<Error> Prepare(const std::string& bus);
    std::optional<Error> Insert(const Event& event);
    std::optional<Error> SetBus(const std::string& bus);
    void BeginLogAnew();
    bool HoldRoom();
    std::optional<Error> SetMeta(const std::string& key, std::int64_t value);
    Result<std::int64_t> Delete(const std::string& which, int count);

    const std::string path_;
    sqlite::Database database_;
    std::optional<sqlite::Statement> insert_;
    std::optional<sqlite::Statement> meta_;
    std::uint64_t lastSeq_ = 0;
    bool isCapped_ = false;  // the file may not grow
};

}  // namespace ominspect::gateway
