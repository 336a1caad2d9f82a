// The records that the handlers work on: those of this process, and the layout of those on the wire.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

#include "base/field_text.h"
#include "ominspect/records.h"

/// A request for one item, 48 bytes. Built on the stack for one call; never leaves the process, since it points
/// to its text.
struct tagKivoOmInspectionRequestMsg {
    char name[OM_INSPECT_NAME_SIZE];  //  0: item name, NUL-terminated
    uint32_t len;                     // 32: bytes of `data` that count
    uint32_t reserved;                // 36: zero
    alignas(8) const char* data;      // 40: the request's JSON text, NUL-terminated, not owned
};

/// A JSON text, not owned. `text` must be NUL-terminated; what follows its first NUL is not read.
struct JsonText {
    const char* text;
    uint32_t len;
};

/// Where asynchronous results for a client, or run requests for an item's owner, are sent.
struct InspectClientMsg {
    std::string procName;
    std::string taskName;
};

/// Whether a result's status is exactly `word`.
inline bool HasStatus(const tagKivoOmInspectionResult& result, std::string_view word) {
    return FieldText(result.status).View() == word;
}

// The wire format: sizes and offsets never change.
template <typename Record>
constexpr bool kIsWireRecord = std::is_standard_layout_v<Record>&& std::is_trivially_copyable_v<Record>;

static_assert(kIsWireRecord<tagKivoOmInspectionRequestMsg>);
static_assert(sizeof(tagKivoOmInspectionRequestMsg) == 48);
static_assert(offsetof(tagKivoOmInspectionRequestMsg, name) == 0);
static_assert(offsetof(tagKivoOmInspectionRequestMsg, len) == 32);
static_assert(offsetof(tagKivoOmInspectionRequestMsg, reserved) == 36);
static_assert(offsetof(tagKivoOmInspectionRequestMsg, data) == 40);

static_assert(kIsWireRecord<tagKivoOmInspectionResult>);
static_assert(sizeof(tagKivoOmInspectionResult) == 192);
static_assert(offsetof(tagKivoOmInspectionResult, name) == 0);
static_assert(offsetof(tagKivoOmInspectionResult, status) == 32);
static_assert(offsetof(tagKivoOmInspectionResult, text) == 64);

static_assert(kIsWireRecord<tagKivoOmInspectionDataItem>);
static_assert(sizeof(tagKivoOmInspectionDataItem) == 208);
static_assert(offsetof(tagKivoOmInspectionDataItem, result) == 0);
static_assert(offsetof(tagKivoOmInspectionDataItem, startTime) == 192);
static_assert(offsetof(tagKivoOmInspectionDataItem, endTime) == 200);

static_assert(kIsWireRecord<tagKivoOmInspectionGroupResult>);
static_assert(sizeof(tagKivoOmInspectionGroupResult) == 6688);
static_assert(offsetof(tagKivoOmInspectionGroupResult, taskId) == 0);
static_assert(offsetof(tagKivoOmInspectionGroupResult, reserved0) == 4);
static_assert(offsetof(tagKivoOmInspectionGroupResult, count) == 24);
static_assert(offsetof(tagKivoOmInspectionGroupResult, reserved1) == 28);
static_assert(offsetof(tagKivoOmInspectionGroupResult, items) == 32);

static_assert(kIsWireRecord<tagKivoOmInspectionItem>);
static_assert(sizeof(tagKivoOmInspectionItem) == 48);
static_assert(offsetof(tagKivoOmInspectionItem, name) == 0);
static_assert(offsetof(tagKivoOmInspectionItem, level) == 32);
static_assert(offsetof(tagKivoOmInspectionItem, featureBits) == 40);

static_assert(kIsWireRecord<tagKivoOmInspectionItemList>);
static_assert(sizeof(tagKivoOmInspectionItemList) == 12296);
static_assert(offsetof(tagKivoOmInspectionItemList, items) == 0);
static_assert(offsetof(tagKivoOmInspectionItemList, count) == 12288);
static_assert(offsetof(tagKivoOmInspectionItemList, reserved) == 12292);

static_assert(kIsWireRecord<tagKivoOmInspectionRunHead>);
static_assert(sizeof(tagKivoOmInspectionRunHead) == 36);
static_assert(offsetof(tagKivoOmInspectionRunHead, name) == 0);
static_assert(offsetof(tagKivoOmInspectionRunHead, len) == 32);
