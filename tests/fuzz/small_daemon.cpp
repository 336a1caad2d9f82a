// One thread reads, any thread writes.
#include "small_daemon.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "input.h"

namespace fuzz {

namespace {

constexpr const char* kDaemon = "org.freedesktop.DBus";
constexpr std::size_t kHead = 16;

void Align(std::string& out, std::size_t to) {
    out.resize((out.size() + to - 1) / to * to);
}

std::uint32_t NumberAt(const std::string& bytes, std::size_t offset) {
    std::uint32_t number = 0;
    std::memcpy(&number, bytes.data() + offset, sizeof(number));
    return number;
}

// What is read of a message that the message layer has sent.
struct Read {
    std::uint32_t serial = 0;
    std::uint32_t replyTo = 0;
    std::map<unsigned char, std::string> texts;
    std::string argument;  // the first one, of calls with a text
};

Read Parsed(const std::string& message) {
    Read read;
    read.serial = NumberAt(message, 8);
    const std::size_t end = kHead + NumberAt(message, 12);
    for (std::size_t at = kHead; at + 4 < end;) {
        const auto field = static_cast<unsigned char>(message[at]);
        const char type = message[at + 2];
        at += 4;
        if (type == 'u') {
            at = (at + 3) / 4 * 4;
            (field == 5 ? read.replyTo : read.serial) = NumberAt(message, at);
            at += 4;
        } else if (type == 'g') {
            const auto length = static_cast<unsigned char>(message[at]);
            read.texts[field] = message.substr(at + 1, length);
            at += 2U + length;
        } else {
            at = (at + 3) / 4 * 4;
            const std::uint32_t length = NumberAt(message, at);
            read.texts[field] = message.substr(at + 4, length);
            at += 5U + length;
        }
        at = (at + 7) / 8 * 8;
    }
    const std::size_t body = (end + 7) / 8 * 8;
    if (read.texts[BusMessage::kSignature].starts_with('s') && message.size() > body + 4) {
        read.argument = message.substr(body + 4, NumberAt(message, body));
    }
    return read;
}

}  // namespace

void AppendNumber(std::string& out, std::uint32_t number) {
    Align(out, 4);
    out.append(reinterpret_cast<const char*>(&number), sizeof(number));
}

void AppendText(std::string& out, std::string_view text) {
    AppendNumber(out, static_cast<std::uint32_t>(text.size()));
    out.append(text).push_back('\0');
}

BusMessage::BusMessage(Type type, std::uint32_t serial, bool wantsReply) {
    head_ = {'l', static_cast<char>(type), static_cast<char>(wantsReply ? 0 : 1), 1, 0, 0, 0, 0};
    AppendNumber(head_, serial);
    // sd-bus takes a call without a destination for one to everybody, which no object answers.
    if (type == kCall) {
        Text(kDestination, 's', ":1.1");
    }
}

void BusMessage::Field(unsigned char field, char type) {
    Align(fields_, 8);
    fields_.append({static_cast<char>(field), 1, type, 0});
}

BusMessage& BusMessage::Text(unsigned char field, char type, std::string_view value) {
    Field(field, type);
    if (type == 'g') {
        fields_.push_back(static_cast<char>(value.size()));
        fields_.append(value).push_back('\0');
    } else {
        AppendText(fields_, value);
    }
    return *this;
}

BusMessage& BusMessage::ReplyTo(std::uint32_t serial) {
    Field(5, 'u');
    AppendNumber(fields_, serial);
    return *this;
}

BusMessage& BusMessage::Body(std::string_view signature, std::string_view bytes) {
    if (!signature.empty()) {
        Text(kSignature, 'g', signature);
        body_ = bytes;
    }
    return *this;
}

std::string BusMessage::Bytes() const {
    std::string bytes = head_;
    const auto size = static_cast<std::uint32_t>(body_.size());
    std::memcpy(bytes.data() + 4, &size, sizeof(size));
    AppendNumber(bytes, static_cast<std::uint32_t>(fields_.size()));
    bytes += fields_;
    Align(bytes, 8);
    return bytes + body_;
}

SmallDaemon::SmallDaemon() {
    const std::string name = "ominspect-fuzz-" + std::to_string(getpid());
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path + 1, name.data(), name.size());
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    Check(listener >= 0 && bind(listener, reinterpret_cast<sockaddr*>(&address), size) == 0 &&
          listen(listener, 1) == 0);
    Check(setenv("KIVO_BUS_ADDRESS", ("unix:abstract=" + name).c_str(), 1) == 0);
    thread_ = std::thread([this, listener] { Serve(listener); });
}

void SmallDaemon::Serve(int listener) {
    for (;;) {
        connection_ = accept(listener, nullptr, nullptr);
        if (connection_ < 0) {  // interrupted
            continue;
        }
        if (LogOn()) {
            while (ReadMessage()) {
            }
        }
        const std::lock_guard lock(mutex_);
        close(connection_.exchange(-1));
        isEnded_ = true;
        changed_.notify_all();
    }
}

// sd-bus says everything at once and looks at the answers later.
bool SmallDaemon::LogOn() {
    std::string said;
    while (said.find("BEGIN\r\n") == std::string::npos) {
        if (!ReadBytes(said, 1)) {
            return false;
        }
    }
    Send("DATA\r\nOK 0123456789abcdef0123456789abcdef\r\n");
    return true;
}

bool SmallDaemon::ReadBytes(std::string& out, std::size_t size) const {
    while (size > 0) {
        char buffer[4096];
        const ssize_t count = read(connection_, buffer, std::min(size, sizeof(buffer)));
        if (count < 0 && errno == EINTR) {  // the fuzzer's timer
            continue;
        }
        if (count <= 0) {
            return false;
        }
        out.append(buffer, static_cast<std::size_t>(count));
        size -= static_cast<std::size_t>(count);
    }
    return true;
}

bool SmallDaemon::ReadMessage() {
    std::string message;
    if (!ReadBytes(message, kHead)) {
        return false;
    }
    const std::size_t fields = (NumberAt(message, 12) + 7) / 8 * 8;
    if (!ReadBytes(message, fields + NumberAt(message, 4))) {
        return false;
    }
    Take(message);
    return true;
}

void SmallDaemon::Take(const std::string& message) {
    const Read read = Parsed(message);
    if (message[1] != BusMessage::kCall) {
        const std::lock_guard lock(mutex_);
        answered_ = std::max(answered_, read.replyTo);
        changed_.notify_all();
        return;
    }
    if ((message[2] & 1) != 0) {
        return;
    }
    const std::string destination =
        read.texts.contains(BusMessage::kDestination) ? read.texts.at(BusMessage::kDestination) : "";
    if (destination == kDaemon) {
        Answer(read.texts.at(BusMessage::kMember), read.serial, read.argument);
        return;
    }
    BusMessage answer(BusMessage::kReturn, NextSerial());
    answer.ReplyTo(read.serial).Text(BusMessage::kSender, 's', kDaemon);
    {
        const std::lock_guard lock(mutex_);
        answer.Body(signature_, body_);
    }
    Send(answer.Bytes());
}

void SmallDaemon::Answer(const std::string& member, std::uint32_t serial, const std::string& argument) {
    BusMessage answer(BusMessage::kReturn, NextSerial());
    answer.ReplyTo(serial).Text(BusMessage::kSender, 's', kDaemon).Text(BusMessage::kDestination, 's', ":1.1");
    std::string body;
    if (member == "Hello") {
        AppendText(body, ":1.1");
        answer.Body("s", body);
    } else if (member == "ListNames") {
        std::string names;
        const std::lock_guard lock(mutex_);
        for (const auto& [name, owner] : owners_) {
            AppendText(names, name);
        }
        AppendNumber(body, static_cast<std::uint32_t>(names.size()));
        answer.Body("as", body + names);
    } else if (member == "GetNameOwner") {
        const std::lock_guard lock(mutex_);
        const auto owner = owners_.find(argument);
        AppendText(body, owner != owners_.end() ? owner->second : ":1.1");
        answer.Body("s", body);
    } else if (member == "GetId") {
        AppendText(body, "0123456789abcdef0123456789abcdef");
        answer.Body("s", body);
    } else if (member != "AddMatch" && member != "RemoveMatch") {
        AppendNumber(body, 1);  // RequestName, NameHasOwner, GetConnectionUnixUser
        answer.Body(member == "NameHasOwner" ? "b" : "u", body);
    }
    Send(answer.Bytes());
}

// What is not taken in time was sent to a connection that is gone.
void SmallDaemon::Send(const std::string& bytes) {
    const std::lock_guard lock(mutex_);
    for (std::size_t at = 0; at < bytes.size() && connection_ >= 0;) {
        const ssize_t count = send(connection_, bytes.data() + at, bytes.size() - at, MSG_NOSIGNAL);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return;
        }
        at += static_cast<std::size_t>(count);
    }
}

void SmallDaemon::SendLast(const std::string& bytes) {
    Send(bytes);
    const std::lock_guard lock(mutex_);
    (void)shutdown(connection_, SHUT_RDWR);
}

void SmallDaemon::Add(const std::string& process, const std::string& connection) {
    const std::lock_guard lock(mutex_);
    owners_["com.kivo.proc." + process] = connection;
}

void SmallDaemon::PeerAnswers(std::string signature, std::string body) {
    const std::lock_guard lock(mutex_);
    signature_ = std::move(signature);
    body_ = std::move(body);
}

bool SmallDaemon::Ask(BusMessage& call, std::uint32_t serial) {
    {
        const std::lock_guard lock(mutex_);
        isEnded_ = connection_ < 0;
    }
    Send(call.Bytes());
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return answered_ >= serial || isEnded_; });
    return !isEnded_;
}

}  // namespace fuzz
