// The item reports the directory of the terminal's application logs.
#include "inside/inside_inspection.h"

#include "base/log.h"
#include "kivo/om_inspect_engine_client.h"
#include "kivo/os_bounds.h"

namespace {

constexpr LogUnit kLogUnit{"inspect_inside_linux", 24};

uint32_t TellLogDir(const char* /*itemName*/, const char* /*request*/, tagKivoOmInspectionResult* result) {
    if (const errno_t error = strcpy_s(result->status, sizeof(result->status), "success"); error != 0) {
        return static_cast<uint32_t>(error);
    }
    if (const errno_t error = strcpy_s(result->text, sizeof(result->text), "/var/log/kivoshare"); error != 0) {
        return static_cast<uint32_t>(error);
    }
    INSPECT_INFO("get log dir diag success");
    return 0;
}

}  // namespace

uint32_t InitInspectInside() {
    INSPECT_INFO(">>> InitInspectInside \n");
    if (const uint32_t result = InspectClientInit("inside_check"); result != 0) {
        INSPECT_ERROR("Inside Inspect Init fail.");
        return result;
    }
    const InspectHandlerRecord record{"kivo_om_get_log_dir", TellLogDir, 1000};
    if (const uint32_t result = InspectRegHandler(&record, 1); result != 0) {
        INSPECT_ERROR("Reg Inside Inspect Init fail.\n");
        return result;
    }
    return 0;
}

void InspectSlaveProcess(TagMsgBlock* /*msg*/, std::unique_ptr<unsigned char[]>& /*reply*/,
                         unsigned int& /*replyLength*/) {}

void InspectTransCreateFile(TagMsgBlock* /*msg*/, std::unique_ptr<unsigned char[]>& /*reply*/,
                            unsigned int& /*replyLength*/) {}

void InspectTransWriteFile(TagMsgBlock* /*msg*/, std::unique_ptr<unsigned char[]>& /*reply*/,
                           unsigned int& /*replyLength*/) {}

void InspectTransCloseFile(TagMsgBlock* /*msg*/, std::unique_ptr<unsigned char[]>& /*reply*/,
                           unsigned int& /*replyLength*/) {}

void InspectSlaveReadVersion(TagMsgBlock* /*msg*/, std::unique_ptr<unsigned char[]>& /*reply*/,
                             unsigned int& /*replyLength*/) {}
