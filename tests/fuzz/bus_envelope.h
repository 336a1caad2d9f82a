// Messages of the message layer, as the bus carries them: calls for the tasks of a process, and events of others.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "small_daemon.h"

namespace fuzz {

struct BusEnvelope {
    std::string task;    // as its path has it: the one that gets a call, or that tells an event
    std::string sender;  // a connection
    std::uint32_t id = 0;
    std::uint32_t param = 0;
    std::string sourceTask;
    std::string replyTask;
    std::string_view payload;
};

inline void AppendBytes(std::string& out, std::string_view bytes) {
    AppendNumber(out, static_cast<std::uint32_t>(bytes.size()));
    out.append(bytes);
}

inline BusMessage MessageOf(const BusEnvelope& envelope, BusMessage::Type type, const char* member,
                            std::uint32_t serial, bool wantsReply) {
    BusMessage message(type, serial, wantsReply);
    message.Text(BusMessage::kPath, 'o', "/com/kivo/task/" + envelope.task);
    message.Text(BusMessage::kInterface, 's', "com.kivo.Msg").Text(BusMessage::kMember, 's', member);
    return message.Text(BusMessage::kSender, 's', envelope.sender);
}

inline BusMessage CallOf(const BusEnvelope& envelope, std::uint32_t serial, bool wantsReply) {
    std::string body;
    AppendNumber(body, envelope.id);
    AppendNumber(body, envelope.param);
    AppendText(body, envelope.sourceTask);
    AppendText(body, envelope.replyTask);
    AppendBytes(body, envelope.payload);
    return MessageOf(envelope, BusMessage::kCall, "Send", serial, wantsReply).Body("uussay", body);
}

inline BusMessage EventOf(const BusEnvelope& envelope, std::uint32_t serial) {
    std::string body;
    AppendNumber(body, envelope.id);
    AppendBytes(body, envelope.payload);
    return MessageOf(envelope, BusMessage::kSignal, "Event", serial, false).Body("uay", body);
}

}  // namespace fuzz
