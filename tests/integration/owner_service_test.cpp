// The owner of configured items, under circumstances that are not the usual ones.
#include <string>

#include "programs.h"

namespace support {
namespace {

constexpr const char* kLongest = "1234567890123456789012345678901";  // 31 letters

class OwnerService : public Programs {
protected:
    std::string FileWithTheLongestNames() const {
        const std::string path = Folder() + "/owner.xml";
        WriteFile(path, std::string("<Owner process='123456789012345'><Item name='") + kLongest +
                            "' isSync='true'><Command>/bin/echo</Command><Arg>fine</Arg></Item></Owner>");
        return path;
    }
};

TEST_F(OwnerService, ServesAnItemWithTheLongestName) {
    const Child server = StartServer(true);
    const Child owner({OMINSPECT_OWNER_PROGRAM, FileWithTheLongestNames()});
    EXPECT_TRUE(EventuallyText(kLongest, "fine")) << owner.Output();
}

// Else the system would keep the commands' exit statuses to itself.
TEST_F(OwnerService, HearsOfItsCommandsEndsWhateverItsParentIgnores) {
    const Child server = StartServer(true);
    const Child owner({"/usr/bin/env", "--ignore-signal=CHLD", OMINSPECT_OWNER_PROGRAM, FileWithTheLongestNames()});
    EXPECT_TRUE(EventuallyText(kLongest, "fine")) << owner.Output();
}

}  // namespace
}  // namespace support
