// The built-in tables, and the static initialisation of the configuration, in this order.
#include "config/default_config.h"

#include <new>

#include "base/device_paths.h"
#include "ominspect/config.h"

// clang-format off
std::vector<tagKivoOmInspectionItem> InspectDefaultConfig::g_supportInspectList{
    // name, level, feature bits (1: synchronous)
    {"bsp_mainboard_ft",                "error",  1},
    {"devm_wired_connect_ft",           "error",  1},
    {"devm_connect_ap_ft",              "error",  1},
    {"aud_MicHwLink_ft",                "error",  1},
    {"mediactrl_inspect_aux_out_ft",    "error",  1},
    {"mediactrl_inspect_main_out_ft",   "error",  1},
    {"mediactrl_inspect_main_in_ft",    "error",  1},
    {"camera_image_inversion_ft",       "warn",   1},
    {"camera_awb_mode_ft",              "warn",   1},
    {"devm_lan_mode_ft",                "warn",   1},
    {"camera_ae_mode_ft",               "warn",   1},
    {"camera_pic_mode_ft",              "warn",   1},
    {"aud_MicAll_ft",                   "warn",   1},
    {"aud_SpkQuiet_ft",                 "error",  1},
    {"aud_aecCaps_ft",                  "warn",   1},
    {"aud_lineLocal_ft",                "warn",   1},
    {"aud_lineRemote_ft",               "warn",   1},
    {"conf_dndswitch_ft",               "error",  1},
    {"conf_autoanswermute_ft",          "warn",   1},
    {"conf_defaultcallband_ft",         "warn",   1},
    {"conf_maxcallinband_ft",           "warn",   1},
    {"conf_h323_ft",                    "error",  1},
    {"conf_sip_ft",                     "error",  1},
    {"conf_conferenceserver_ft",        "error",  1},
    {"conf_ldapserver_ft",              "error",  0},
};

std::vector<InspectOneDiagFile> InspectDefaultConfig::g_defaultLogCollectList{
    // source, destination, seconds, copy function
    {"/data/applog", "/data/inspect/diag/log/applog", 5, InspectCopyDirFile},
    {"/data/log/wylogs", "/data/inspect/diag/log/wylogs", 5, InspectCopyWylogsFile},
    {"/data/crashdumps", "/data/inspect/diag/log/crashdumps", 1, InspectCopyDirFile},
    {"/log/stability/boot_error/pending", "/data/inspect/diag/log/pending", 1, InspectCopyDirFile},
    {"/data/chip_logs", "/data/inspect/diag/log/chip_logs", 5, InspectCopyDirFile},
    {"/data/shell_os_dectect_log", "/data/inspect/diag/log/shell_os_dectect_log", 1, InspectCopyDirFile},
    {"/data/mem_usage", "/data/inspect/diag/log/mem_usage", 1, InspectCopyDirFile},
    {"/data/log/eventbox", "/data/inspect/diag/log/eventbox", 25, InspectCopyDirFile},
    {"/data/media/0/osdata/data/rooms.app/files/log", "/data/inspect/diag/log/rooms.app", 3, InspectCopyDirFile},
    {"/backup2/rescue", "/data/inspect/diag/log/rescue", 2, InspectCopyDirFile},
    {"/data/log/EventStore/sys_event_db", "/data/inspect/diag/log/EventStore/sys_event_db", 1, InspectCopyDirFile},
    {"/data/log/EventStore/tc_db", "/data/inspect/diag/log/EventStore/tc_db", 1, InspectCopyDirFile},
    {"/data/log/EventStore/0/event_daily_count.db", "/data/inspect/diag/log/EventStore/0/event_daily_count.db", 1, InspectCopyFile},
    {"/data/log/EventStore/0/event_quota.db", "/data/inspect/diag/log/EventStore/0/event_quota.db", 1, InspectCopyFile},
    {"/data/log/EventStore/0/timer_record.db", "/data/inspect/diag/log/EventStore/0/timer_record.db", 1, InspectCopyFile},
    {"/data/log/eventview", "/data/inspect/diag/log/eventview", 1, InspectCopyDirFile},
    {"/data/log/stability/res_leak", "/data/inspect/diag/log/stability/res_leak", 1, InspectCopyDirFile},
    {"/data/log/stability/watchdog", "/data/inspect/diag/log/stability/watchdog", 1, InspectCopyDirFile},
    {"/data/inspect/sigtrace", "/data/inspect/diag/log/sigtrace", 1, InspectCopyDirFile},
    {"data/log/crashlog", "/data/inspect/diag/log/crashlog", 20, InspectCopyDirFile},
};
// clang-format on

const std::string g_inspectConfigPath = kConfigPath;

InspectConfigMgr* InspectConfigMgr::m_configMgr = new (std::nothrow) InspectConfigMgr();
