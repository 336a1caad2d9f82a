// The other end of the bus within one process: answers what the message layer asks of a bus daemon, and sends it any
// bytes.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "kivo/os_msg.h"

namespace fuzz {

// A message of D-Bus (little-endian), put together by hand: sd-bus would not write a wrong one.
class BusMessage {
public:
    enum Type : unsigned char { kCall = 1, kReturn = 2, kError = 3, kSignal = 4 };

    BusMessage(Type type, std::uint32_t serial, bool wantsReply = false);

    // Header fields. Their values must be right, or the reader ends the connection.
    BusMessage& Text(unsigned char field, char type, std::string_view value);  // type: 's', 'o' or 'g'
    BusMessage& ReplyTo(std::uint32_t serial);
    BusMessage& Body(std::string_view signature, std::string_view bytes);

    std::string Bytes() const;

    static constexpr unsigned char kPath = 1, kInterface = 2, kMember = 3, kErrorName = 4, kDestination = 6,
                                   kSender = 7, kSignature = 8;

private:
    void Field(unsigned char field, char type);

    std::string head_;
    std::string fields_;
    std::string body_;
};

// The marshalled forms of what is sent here.
void AppendNumber(std::string& out, std::uint32_t number);
void AppendText(std::string& out, std::string_view text);

// Serves one connection after the other, at the address that it puts into KIVO_BUS_ADDRESS.
class SmallDaemon {
public:
    static constexpr const char* kPeer = ":1.3";  // the connection of process "peer", which is there from the beginning

    SmallDaemon();

    void Send(const std::string& bytes);

    // Sends what may be the beginning of a message only, and ends the connection.
    void SendLast(const std::string& bytes);

    // Another process is on the bus, as this connection, for whoever connects from now on.
    void Add(const std::string& process, const std::string& connection);

    // What the other processes answer to the calls that they get: a body of this signature.
    void PeerAnswers(std::string signature, std::string body);

    // Sends a call, and waits for its answer of whatever kind. False: the connection has been ended.
    bool Ask(BusMessage& call, std::uint32_t serial);

    // Whether this call, or one after it, was answered.
    bool HasAnswerTo(std::uint32_t serial) {
        const std::lock_guard lock(mutex_);
        return answered_ >= serial;
    }

    std::uint32_t NextSerial() { return ++serial_; }

private:
    void Serve(int listener);
    bool LogOn();
    bool ReadMessage();
    void Take(const std::string& message);
    void Answer(const std::string& member, std::uint32_t serial, const std::string& argument);
    bool ReadBytes(std::string& out, std::size_t size) const;

    std::atomic<int> connection_{-1};
    std::atomic<std::uint32_t> serial_{0};
    std::mutex mutex_;  // guards everything below, and writing
    std::condition_variable changed_;
    std::uint32_t answered_ = 0;  // the serial of the last call of Ask that was answered
    bool isEnded_ = false;
    std::string signature_;
    std::string body_;
    std::map<std::string, std::string> owners_{{"com.kivo.proc.peer", kPeer}};  // of names on the bus
    std::thread thread_;
};

// One connection serves 5,000 inputs; then the process leaves the bus, and `attach` joins it again.
template <typename Attach>
void JoinNowAndThen(const Attach& attach) {
    constexpr int kInputsOfOneConnection = 5000;
    static int inputs = 0;
    if (inputs++ % kInputsOfOneConnection == 0) {
        OsProcDetach();
        attach();
    }
}

}  // namespace fuzz
