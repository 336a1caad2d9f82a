// The two lists of the configuration as lines of text, and the built-in ones written out once more.
#pragma once

#include <string>
#include <vector>

#include "ominspect/collect.h"
#include "ominspect/records.h"
#include "support/journal_text.h"

namespace support {

/// "name level bits" for each item.
inline Lines Text(const std::vector<tagKivoOmInspectionItem>& items) {
    Lines lines;
    for (const auto& item : items) {
        lines.push_back(std::string(item.name) + " " + item.level + " " + std::to_string(item.featureBits));
    }
    return lines;
}

/// "source destination seconds function" for each log-collection entry.
inline Lines Text(const std::vector<InspectOneDiagFile>& entries) {
    Lines lines;
    for (const auto& entry : entries) {
        const char* function = entry.copy == InspectCopyDirFile      ? "dir"
                               : entry.copy == InspectCopyFile       ? "file"
                               : entry.copy == InspectCopyWylogsFile ? "wylogs"
                                                                     : "none";
        lines.push_back(std::string(entry.srcPath) + " " + entry.dstPath + " " + std::to_string(entry.timeout) + " " +
                        function);
    }
    return lines;
}

// clang-format off
inline const Lines kDefaultItems{
    "bsp_mainboard_ft error 1",
    "devm_wired_connect_ft error 1",
    "devm_connect_ap_ft error 1",
    "aud_MicHwLink_ft error 1",
    "mediactrl_inspect_aux_out_ft error 1",
    "mediactrl_inspect_main_out_ft error 1",
    "mediactrl_inspect_main_in_ft error 1",
    "camera_image_inversion_ft warn 1",
    "camera_awb_mode_ft warn 1",
    "devm_lan_mode_ft warn 1",
    "camera_ae_mode_ft warn 1",
    "camera_pic_mode_ft warn 1",
    "aud_MicAll_ft warn 1",
    "aud_SpkQuiet_ft error 1",
    "aud_aecCaps_ft warn 1",
    "aud_lineLocal_ft warn 1",
    "aud_lineRemote_ft warn 1",
    "conf_dndswitch_ft error 1",
    "conf_autoanswermute_ft warn 1",
    "conf_defaultcallband_ft warn 1",
    "conf_maxcallinband_ft warn 1",
    "conf_h323_ft error 1",
    "conf_sip_ft error 1",
    "conf_conferenceserver_ft error 1",
    "conf_ldapserver_ft error 0",
};

inline const Lines kDefaultEntries{
    "/data/applog /data/inspect/diag/log/applog 5 dir",
    "/data/log/wylogs /data/inspect/diag/log/wylogs 5 wylogs",
    "/data/crashdumps /data/inspect/diag/log/crashdumps 1 dir",
    "/log/stability/boot_error/pending /data/inspect/diag/log/pending 1 dir",
    "/data/chip_logs /data/inspect/diag/log/chip_logs 5 dir",
    "/data/shell_os_dectect_log /data/inspect/diag/log/shell_os_dectect_log 1 dir",
    "/data/mem_usage /data/inspect/diag/log/mem_usage 1 dir",
    "/data/log/eventbox /data/inspect/diag/log/eventbox 25 dir",
    "/data/media/0/osdata/data/rooms.app/files/log /data/inspect/diag/log/rooms.app 3 dir",
    "/backup2/rescue /data/inspect/diag/log/rescue 2 dir",
    "/data/log/EventStore/sys_event_db /data/inspect/diag/log/EventStore/sys_event_db 1 dir",
    "/data/log/EventStore/tc_db /data/inspect/diag/log/EventStore/tc_db 1 dir",
    "/data/log/EventStore/0/event_daily_count.db /data/inspect/diag/log/EventStore/0/event_daily_count.db 1 file",
    "/data/log/EventStore/0/event_quota.db /data/inspect/diag/log/EventStore/0/event_quota.db 1 file",
    "/data/log/EventStore/0/timer_record.db /data/inspect/diag/log/EventStore/0/timer_record.db 1 file",
    "/data/log/eventview /data/inspect/diag/log/eventview 1 dir",
    "/data/log/stability/res_leak /data/inspect/diag/log/stability/res_leak 1 dir",
    "/data/log/stability/watchdog /data/inspect/diag/log/stability/watchdog 1 dir",
    "/data/inspect/sigtrace /data/inspect/diag/log/sigtrace 1 dir",
    "data/log/crashlog /data/inspect/diag/log/crashlog 20 dir",
};
// clang-format on

}  // namespace support
