// The server's configuration: any XML through the loader and the conversion of its attributes.
#include <tinyxml2.h>

#include <cstring>
#include <string>

#include "config/config_transfer.h"
#include "fake/fake.h"
#include "input.h"
#include "ominspect/config.h"

namespace {

template <std::size_t N>
bool Ends(const char (&field)[N]) {
    return std::memchr(field, 0, N) != nullptr;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kivo::fake::Reset();
    const std::string text(reinterpret_cast<const char*>(data), size);
    unsigned int number = 7;
    ConfigTransfer::String2Uint32(text, number);
    fuzz::Check(ConfigTransfer::IsAllNum(text) || number == 0);

    tinyxml2::XMLDocument document(true, tinyxml2::PRESERVE_WHITESPACE);
    if (document.Parse(text.data(), text.size()) != tinyxml2::XML_SUCCESS || document.RootElement() == nullptr) {
        return 0;
    }
    InspectConfigMgr config;
    config.InitInspectItemList(document.RootElement());
    config.InitLogCollectList(document.RootElement());
    for (const tagKivoOmInspectionItem& item : config.GetInspectItemList()) {
        fuzz::Check(Ends(item.name) && Ends(item.level) && (item.featureBits & ~std::int64_t{1}) == 0);
    }
    for (const InspectOneDiagFile& entry : config.GetLogCollectList()) {
        fuzz::Check(Ends(entry.srcPath) && Ends(entry.dstPath) && entry.timeout <= 999999999 && entry.copy != nullptr);
    }
    return 0;
}
