// What a USB device says of its sound, and bytes that say nothing.
#include "media/usb_audio.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;

const Bytes kDevice{18, 1, 0, 2, 0, 0, 0, 64, 0x6D, 4, 0x5C, 8, 0, 1, 1, 2, 0, 1};
const Bytes kConfiguration{9, 2, 60, 0, 2, 1, 0, 0x80, 50};

Bytes Interface(std::uint8_t kind, std::uint8_t subkind) {
    return {9, 4, 0, 0, 0, kind, subkind, 0, 0};
}

Bytes Terminal(std::uint8_t input, std::uint8_t low, std::uint8_t high) {
    return {12, 0x24, input, 1, low, high, 0, 1, 0, 0, 0, 0};
}

bool Cancels(const std::vector<Bytes>& parts) {
    Bytes all;
    for (const Bytes& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return room::CancelsEcho(all);
}

TEST(UsbAudio, ASpeakerphoneThatCancelsEchoes) {
    EXPECT_TRUE(Cancels({kDevice, kConfiguration, Interface(1, 1), Terminal(2, 0x05, 0x04)}));
    EXPECT_TRUE(Cancels({kDevice, Interface(1, 1), Terminal(2, 0x01, 0x02), Terminal(3, 0x05, 0x04)}));
}

TEST(UsbAudio, WhatIsNone) {
    EXPECT_FALSE(Cancels({kDevice, kConfiguration, Interface(1, 1), Terminal(2, 0x03, 0x04)}));
    EXPECT_FALSE(Cancels({kDevice, Interface(1, 1), Terminal(2, 0x05, 0x02)}));
    EXPECT_FALSE(Cancels({kDevice, Interface(1, 2), Terminal(2, 0x05, 0x04)}));
    EXPECT_FALSE(Cancels({kDevice, Interface(14, 1), Terminal(2, 0x05, 0x04)}));
    EXPECT_FALSE(Cancels({kDevice, Interface(1, 1), Terminal(6, 0x05, 0x04)}));
    EXPECT_FALSE(Cancels({Terminal(2, 0x05, 0x04)}));
}

TEST(UsbAudio, BytesThatAreCutOrEndless) {
    EXPECT_FALSE(room::CancelsEcho({}));
    EXPECT_FALSE(Cancels({{0, 0, 0, 0}}));
    EXPECT_FALSE(Cancels({{1, 4, 1, 1, 1}}));
    EXPECT_FALSE(Cancels({Interface(1, 1), {255, 0x24, 2, 1, 5, 4}}));
    EXPECT_FALSE(Cancels({Interface(1, 1), {5, 0x24, 2, 1, 5}, {4}}));
    Bytes all{9, 4, 0, 0, 0, 1, 1, 0, 0, 12, 0x24, 2, 1, 5, 4, 0, 1, 0, 0, 0, 0};
    for (; !all.empty(); all.pop_back()) {
        EXPECT_EQ(room::CancelsEcho(all), all.size() == 21);
    }
}

}  // namespace
