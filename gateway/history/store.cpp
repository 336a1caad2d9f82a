// On a full disk, deleting rows makes room for new ones, but the deletion itself needs room in the write-ahead log. A
// second file reserves that room and is given up then.
#include "history/store.h"

#include <filesystem>

#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include "common/fd.h"
#include "common/text.h"
#include "history/schema.h"

namespace ominspect::gateway {
namespace {

constexpr off_t kHeldRoom = 512 << 10;
constexpr std::uint64_t kRoomToGrow = 2 << 20;
// How many rows are deleted at once: the log of their deletion fits into the reserved room.
constexpr int kMostAtOnce = 500;

// Connections that only read need the log to exist even while nobody writes.
void KeepLog(sqlite::Database& database) {
    int on = 1;
    (void)sqlite3_file_control(database.Get(), "main", SQLITE_FCNTL_PERSIST_WAL, &on);
}

bool IsDamaged(const Error& error) {
    const int code = error.number & 0xFF;
    return code == SQLITE_NOTADB || code == SQLITE_CORRUPT;
}

std::string RoomOf(const std::string& path) {
    return path + ".room";
}

}  // namespace

Result<std::unique_ptr<Store>> Store::Open(const std::string& path, const std::string& bus, bool& setAside) {
    setAside = false;
    auto store = OpenOnce(path, bus);
    if (store || !IsDamaged(store.Failure())) {
        return store;
    }
    std::error_code ignored;
    std::filesystem::rename(path, path + ".damaged", ignored);
    for (const char* suffix : {"-wal", "-shm"}) {
        (void)std::filesystem::remove(path + suffix, ignored);
    }
    setAside = true;
    return OpenOnce(path, bus);
}

Result<std::unique_ptr<Store>> Store::OpenOnce(const std::string& path, const std::string& bus) {
    auto database = sqlite::Database::Open(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX);
    if (!database) {
        return database.Failure();
    }
    std::unique_ptr<Store> store(new Store(path, std::move(*database)));
    if (auto error = store->Prepare(bus)) {
        return *error;
    }
    return store;
}

std::optional<Error> Store::Prepare(const std::string& bus) {
    // With the write-ahead log and NORMAL a commit survives the process without waiting for the disk; after a loss of
    // power the last ones may be missing, and the file is whole.
    if (auto error = database_.Execute("PRAGMA journal_mode=WAL;PRAGMA synchronous=NORMAL;PRAGMA cache_size=-512;"
                                       "PRAGMA journal_size_limit=1048576;PRAGMA wal_autocheckpoint=64")) {
        return error;
    }
    KeepLog(database_);
    // Every page is checked once at the start, so that damage shows now and not in an answer.
    auto check = database_.Prepare("PRAGMA quick_check(1)");
    if (!check) {
        return check.Failure();
    }
    const auto row = check->Step();
    if (!row) {
        return row.Failure();
    }
    if (check->Text(0) != "ok") {
        return Error{ErrorCode::kInternal, check->Text(0), SQLITE_CORRUPT};
    }
    if (auto error = Migrate(database_)) {
        return error;
    }
    auto insert = database_.Prepare(
        "INSERT OR REPLACE INTO events(seq,time,kind,item,status,text,begin,duration,cause)"
        " VALUES(?1,?2,?3,?4,?5,?6,?7,?8,?9)");
    auto meta = database_.Prepare(
        "INSERT INTO meta(key,value) VALUES(?1,?2)"
        " ON CONFLICT(key) DO UPDATE SET value=excluded.value");
    const auto last = database_.Ask("SELECT coalesce(max(seq),0) FROM events");
    if (!insert || !meta || !last) {
        return !insert ? insert.Failure() : !meta ? meta.Failure() : last.Failure();
    }
    insert_ = std::move(*insert);
    meta_ = std::move(*meta);
    lastSeq_ = static_cast<std::uint64_t>(*last);
    (void)HoldRoom();
    return SetBus(bus);
}

// A database that already names this bus is not written, so a full disk does not keep it from being opened.
std::optional<Error> Store::SetBus(const std::string& bus) {
    auto same = database_.Prepare("SELECT 1 FROM meta WHERE key='bus' AND value=?1");
    if (!same) {
        return same.Failure();
    }
    const auto found = same->Bind(1, std::string_view(bus)).Step();
    if (found && *found) {
        return std::nullopt;
    }
    const auto set = meta_->Bind(1, std::string_view("bus")).Bind(2, std::string_view(bus)).Step();
    return set ? std::nullopt : std::optional(set.Failure());
}

Store::~Store() = default;

std::optional<TimePoint> Store::WatchedUntil() {
    const auto ms = database_.Ask("SELECT max(value,0) FROM meta WHERE key='watched'");
    return ms ? std::optional(history::TimeOfMs(*ms)) : std::nullopt;
}

std::optional<Error> Store::Insert(const Event& event) {
    const auto ms = event.duration ? std::optional<std::int64_t>(event.duration->count()) : std::nullopt;
    const auto begin = event.begin ? std::optional(history::MsOf(*event.begin)) : std::nullopt;
    const std::string item = text::ToUtf8(event.item);
    const std::string status = text::ToUtf8(event.status);
    const std::string words = text::ToUtf8(event.text);
    const std::string cause = text::ToUtf8(event.cause);
    insert_->Bind(1, static_cast<std::int64_t>(event.seq)).Bind(2, history::MsOf(event.time));
    insert_->Bind(3, static_cast<std::int64_t>(*StoredKind(event.kind)));
    insert_->Bind(4, std::string_view(item)).Bind(5, std::string_view(status)).Bind(6, std::string_view(words));
    insert_->Bind(7, begin).Bind(8, ms).Bind(9, std::string_view(cause));
    const auto done = insert_->Step();
    return done ? std::nullopt : std::optional(done.Failure());
}

std::optional<Error> Store::SetMeta(const std::string& key, std::int64_t value) {
    const auto done = meta_->Bind(1, std::string_view(key)).Bind(2, value).Step();
    return done ? std::nullopt : std::optional(done.Failure());
}

std::optional<Error> Store::Write(std::span<const Event> events, TimePoint now) {
    auto error = database_.Execute("BEGIN IMMEDIATE");
    for (const Event& event : events) {
        error = error ? error : Insert(event);
    }
    error = error ? error : SetMeta("watched", history::MsOf(now));
    error = error ? error : database_.Execute("COMMIT");
    if (error) {
        (void)database_.Execute("ROLLBACK");
        return error;
    }
    if (!events.empty()) {
        lastSeq_ = events.back().seq;
    }
    return std::nullopt;
}

Result<std::int64_t> Store::Delete(const std::string& which, int count) {
    if (auto error = database_.Execute("DELETE FROM events WHERE seq IN (SELECT seq FROM events " + which +
                                       " ORDER BY seq LIMIT " + std::to_string(count) + ")")) {
        return *error;
    }
    return sqlite3_changes64(database_.Get());
}

Result<bool> Store::Retain(const Retention& retention, std::optional<TimePoint> now) {
    const auto old = now ? Delete("WHERE time<" + std::to_string(history::MsOf(*now - retention.age)), kMostAtOnce)
                         : Result<std::int64_t>(0);
    if (!old) {
        return old.Failure();
    }
    if (*old == kMostAtOnce) {
        return true;
    }
    if (Bytes() <= retention.bytes) {
        return false;
    }
    const auto many = Delete("", kMostAtOnce);
    if (!many) {
        return many.Failure();
    }
    return *many == kMostAtOnce;
}

bool Store::IsFull(const Error& error) {
    return (error.number & 0xFF) == SQLITE_FULL;
}

bool Store::MakeRoom() {
    std::error_code ignored;
    (void)std::filesystem::remove(RoomOf(path_), ignored);
    BeginLogAnew();
    if (!isCapped_) {
        // From now on new rows replace old ones: the file does not grow any more, which leaves room for its log.
        const auto pages = database_.Ask("PRAGMA page_count");
        isCapped_ = pages && database_.Ask("PRAGMA max_page_count=" + std::to_string(*pages));
    }
    bool isDone = false;
    for (int rows = kMostAtOnce; rows > 0 && !isDone; rows /= 4) {
        const auto gone = Delete("", rows);
        isDone = gone && *gone > 0;
    }
    BeginLogAnew();
    (void)HoldRoom();
    return isDone;
}

void Store::BeginLogAnew() {
    (void)database_.Execute("PRAGMA wal_checkpoint(RESTART)");
}

bool Store::HoldRoom() {
    const std::string room = RoomOf(path_);
    const UniqueFd fd(open(room.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0640));
    if (!fd || posix_fallocate(fd.Get(), 0, kHeldRoom) != 0) {
        (void)unlink(room.c_str());
        return false;
    }
    return true;
}

bool Store::Grow() {
    struct statvfs disk {};
    if (!HoldRoom() || statvfs(path_.c_str(), &disk) != 0 || disk.f_bavail * disk.f_frsize < kRoomToGrow) {
        return false;
    }
    isCapped_ = isCapped_ && !database_.Ask("PRAGMA max_page_count=4294967294");
    return !isCapped_;
}

std::uint64_t Store::Bytes() {
    const auto pages = database_.Ask(
        "SELECT (page_count-freelist_count)*page_size FROM"
        " pragma_page_count,pragma_freelist_count,pragma_page_size");
    return pages ? static_cast<std::uint64_t>(*pages) : 0;
}

}  // namespace ominspect::gateway
