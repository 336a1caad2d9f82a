// Process names as names on the bus.
#include "msg/names.h"

#include <gtest/gtest.h>

namespace kivo::msg {
namespace {

struct Pair {
    const char* process;
    const char* bus;
};

TEST(Names, AProcessHasOneNameOnTheBus) {
    for (const Pair& pair : {Pair{"ominspect", "com.kivo.proc.ominspect"},
                             {"a.b", "com.kivo.proc.a_2eb"},
                             {"7up", "com.kivo.proc._37up"},
                             {"ic-4711", "com.kivo.proc.ic._34711"},  // a requester
                             {"ic-a-b", "com.kivo.proc.ic.a_2db"},
                             {"ic-", "com.kivo.proc.ic_2d"},
                             {"ic", "com.kivo.proc.ic"},
                             {"ic.a", "com.kivo.proc.ic_2ea"}}) {
        EXPECT_EQ(BusNameOf(pair.process), pair.bus);
        EXPECT_EQ(ProcNameOf(pair.bus), pair.process);
    }
}

TEST(Names, OtherFormsOfANameAreNobodys) {
    for (const char* name :
         {"com.kivo.proc.ic_2d4711", "com.kivo.proc.ic.4711", "com.kivo.proc.ic._", "com.kivo.proc.ic.",
          "com.kivo.proc.ic.a.b", "com.kivo.proc.owner.a", "com.kivo.proc.om_69nspect", "com.kivo.proc.",
          "com.kivo.proc.ic.a_2d_62", "com.kivo.proc.ic.abcdefghijklm", "com.kivo.other"}) {
        EXPECT_EQ(ProcNameOf(name), "") << name;
    }
    EXPECT_EQ(ProcNameOf("com.kivo.proc.ic.abcdefghijkl"), "ic-abcdefghijkl");
}

}  // namespace
}  // namespace kivo::msg
