-- zanth.lua: a Wireshark dissector for the links between an access-control host (libzanth) and
-- its Zanth door controllers.
--
-- Use it for one run:    wireshark -X lua_script:zanth.lua site.pcap
--                        tshark -X lua_script:zanth.lua -r site.pcap -V
-- or for good: copy it into Wireshark's personal Lua plugins folder (Help > About Wireshark >
-- Folders > Personal Lua Plugins; ~/.local/lib/wireshark/plugins/ on Linux, %APPDATA%\Wireshark\
-- plugins\ on Windows) and restart Wireshark.
--
-- The controllers' port is a preference: Edit > Preferences > Protocols > ZANTH > TCP ports
-- (3001 unless changed; a list and ranges such as "3001,4001-4010" for a site whose controllers
-- are called on ports of their own). From tshark: -o "zanth.ports:3001,4001-4010". Decode As...
-- with ZANTH works for a single conversation too.
--
-- What it shows: each frame's header (code and total length), the code's name and class from
-- the library's code list, the payload split at ';' with the fields of the common messages
-- named (identification, events and alarms, heartbeats, bundles, card look-ups and the host's
-- decisions, PIN requests and reports, ControllerInfo, card records, file chunks and their
-- sizes), and frames of an encrypted link as cipher text with their length. Frames cut across
-- TCP segments are put together, and a segment holding several frames shows each. A frame
-- whose header can't be read is marked with expert info and skipped up to the next header.

local zanth = Proto("zanth", "Zanth controller protocol")

-- BEGIN CODE TABLE (tools/wireshark/gen_codes.py writes it from protocol/CodeList.h)
-- Do not edit: run the script after a change to the code list.
local CODES = {
    [1] = { "ZANTH_CMD_INTERFACE_OUTPUT_FUNCTION", "ZANTH_CMD_INTERFACE_OUTPUT_FUNCTION deprecated", "command" },
    [2] = { "ZANTH_GET_INTERFACE_INPUT_STATUS", "ZANTH_GET_INTERFACE_INPUT_STATUS deprecated", "command" },
    [3] = { "ZANTH_DOWNLOAD_INTERFACE_PROGRAM", "ZANTH_DOWNLOAD_INTERFACE_PROGRAM", "command" },
    [4] = { "ZANTH_DOWNLOAD_INTERFACE_EEPROM", "ZANTH_DOWNLOAD_INTERFACE_EEPROM", "command" },
    [5] = { "ZANTH_SET_HARDWARE_ID", "ZANTH_SET_HARDWARE_ID", "command" },
    [6] = { "ZANTH_READ_INTERFACE_MEMORY", "ZANTH_READ_INTERFACE_MEMORY", "command" },
    [7] = { "ZANTH_WRITE_EEPROM", "ZANTH_WRITE_EEPROM", "command" },
    [8] = { "ZANTH_READ_INTERFACE_ATOD", "ZANTH_READ_INTERFACE_ATOD deprecated", "command" },
    [9] = { "ZANTH_REBOOT_INTERFACE", "ZANTH_REBOOT_INTERFACE deprecated", "command" },
    [10] = { "ZANTH_DISCOVER_INTERFACES", "ZANTH_DISCOVER_INTERFACES deprecated", "command" },
    [12] = { "ZANTH_RESTART_TASK", "ZANTH_RESTART_TASK", "command" },
    [13] = { "ZANTH_STOP_TASK", "ZANTH_STOP_TASK", "command" },
    [14] = { "ZANTH_SET_LOGICAL_INPUT", "ZANTH_SET_LOGICAL_INPUT", "command" },
    [15] = { "ZANTH_GET_LOGICAL_INPUT", "ZANTH_GET_LOGICAL_INPUT", "command" },
    [16] = { "ZANTH_GET_CARD_RECORD", "ZANTH_GET_CARD_RECORD deprecated", "command" },
    [18] = { "ZANTH_SET_TIME_DATE", "ZANTH_SET_TIME_DATE", "command" },
    [19] = { "ZANTH_GET_TIME_DATE", "ZANTH_GET_TIME_DATE", "command" },
    [21] = { "ZANTH_ADD_MOD_CARD_RECORD", "ZANTH_ADD_MOD_CARD_RECORD deprecated", "command" },
    [22] = { "ZANTH_DELETE_CARD_RECORD", "ZANTH_DELETE_CARD_RECORD", "command" },
    [23] = { "ZANTH_UNDELETE_CARD_RECORD", "ZANTH_UNDELETE_CARD_RECORD", "command" },
    [24] = { "ZANTH_ADD_MOD_CARD_RECORD_2", "ZANTH_ADD_MOD_CARD_RECORD_2", "command" },
    [25] = { "ZANTH_GET_CARD_RECORD_2", "ZANTH_GET_CARD_RECORD_2", "command" },
    [26] = { "ZANTH_GET_CARD_RECORD_3", "ZANTH_GET_CARD_RECORD_3", "command" },
    [27] = { "ZANTH_ADD_MOD_CARD_RECORD_3", "ZANTH_ADD_MOD_CARD_RECORD_3", "command" },
    [28] = { "ZANTH_GET_FILE_STATUS", "ZANTH_GET_FILE_STATUS", "command" },
    [29] = { "ZANTH_SET_FILE_STATUS", "ZANTH_SET_FILE_STATUS", "command" },
    [30] = { "ZANTH_SEND_FILE", "ZANTH_SEND_FILE", "command" },
    [31] = { "ZANTH_SEND_FILE_MORE", "ZANTH_SEND_FILE_MORE", "command" },
    [32] = { "ZANTH_SEND_FILE_END", "ZANTH_SEND_FILE_END", "command" },
    [33] = { "ZANTH_GET_FILE", "ZANTH_GET_FILE", "command" },
    [34] = { "ZANTH_GET_FILE_RSP", "ZANTH_GET_FILE_RSP", "reply" },
    [35] = { "ZANTH_GET_CARD_RECORD_4", "ZANTH_GET_CARD_RECORD_4", "command" },
    [45] = { "ZANTH_CONTACT_CONTROLLER", "ZANTH_CONTACT_CONTROLLER", "command" },
    [46] = { "ZANTH_GET_CURRENT_TIME_ZONE", "ZANTH_GET_CURRENT_TIME_ZONE", "command" },
    [47] = { "ZANTH_CMD_LOCAL_OUTPUT_FUNCTION", "ZANTH_CMD_LOCAL_OUTPUT_FUNCTION deprecated", "command" },
    [48] = { "ZANTH_GET_LOCAL_INPUT_STATUS", "ZANTH_GET_LOCAL_INPUT_STATUS deprecated", "command" },
    [49] = { "ZANTH_GET_LOCAL_OUTPUT_STATE", "ZANTH_GET_LOCAL_OUTPUT_STATE", "command" },
    [50] = { "ZANTH_REBOOT_CONTROLLER", "ZANTH_REBOOT_CONTROLLER deprecated", "command" },
    [52] = { "ZANTH_EXECUTE_DB_CHANGE_OVER", "ZANTH_EXECUTE_DB_CHANGE_OVER", "command" },
    [53] = { "ZANTH_READ_LOCAL_ATOD", "ZANTH_READ_LOCAL_ATOD deprecated", "command" },
    [54] = { "ZANTH_GET_LOCAL_ATOD_LIMITS", "ZANTH_GET_LOCAL_ATOD_LIMITS", "command" },
    [55] = { "ZANTH_SET_LOCAL_ATOD_LIMITS", "ZANTH_SET_LOCAL_ATOD_LIMITS", "command" },
    [56] = { "ZANTH_GET_LOCAL_RELAY_TIMER", "ZANTH_GET_LOCAL_RELAY_TIMER", "command" },
    [57] = { "ZANTH_SET_LOCAL_RELAY_TIMER", "ZANTH_SET_LOCAL_RELAY_TIMER", "command" },
    [60] = { "ZANTH_UPLOAD_CURRENT_MSGS", "ZANTH_UPLOAD_CURRENT_MSGS", "command" },
    [61] = { "ZANTH_UPLOAD_CURRENT_MSGS_BY_CLASS_CODE", "ZANTH_UPLOAD_CURRENT_MSGS_BY_CLASS_CODE", "command" },
    [62] = { "ZANTH_UPLOAD_CURRENT_MSGS_BY_PRIORITY", "ZANTH_UPLOAD_CURRENT_MSGS_BY_PRIORITY", "command" },
    [63] = { "ZANTH_UPLOAD_ALL_MSGS", "ZANTH_UPLOAD_ALL_MSGS", "command" },
    [64] = { "ZANTH_UPLOAD_ALL_MSGS_BY_CLASS_CODE", "ZANTH_UPLOAD_ALL_MSGS_BY_CLASS_CODE", "command" },
    [65] = { "ZANTH_UPLOAD_ALL_MSGS_BY_PRIORITY", "ZANTH_UPLOAD_ALL_MSGS_BY_PRIORITY", "command" },
    [66] = { "ZANTH_UPLOAD_MSGS_BY_MSG_ID", "ZANTH_UPLOAD_MSGS_BY_MSG_ID", "command" },
    [67] = { "ZANTH_MESSAGE_RSP", "ZANTH_MESSAGE_RSP", "reply" },
    [69] = { "ZANTH_HEART_BEAT_RSP", "ZANTH_HEART_BEAT_RSP", "reply" },
    [70] = { "ZANTH_ACCEPT_CONNECTION", "ZANTH_ACCEPT_CONNECTION", "reply" },
    [71] = { "ZANTH_REJECT_CONNECTION", "ZANTH_REJECT_CONNECTION", "reply" },
    [73] = { "ZANTH_CHECK_CARD_RSP", "ZANTH_CHECK_CARD_RSP", "reply" },
    [75] = { "ZANTH_RECHECK_LOOKUP_CARD", "ZANTH_RECHECK_LOOKUP_CARD", "command" },
    [76] = { "ZANTH_GET_CARD_HOLDER_STATUS", "ZANTH_GET_CARD_HOLDER_STATUS", "command" },
    [77] = { "ZANTH_RESET_CARD_HOLDER_STATUS", "ZANTH_RESET_CARD_HOLDER_STATUS", "command" },
    [78] = { "ZANTH_RESET_ALL_CARD_HOLDER_STATUS", "ZANTH_RESET_ALL_CARD_HOLDER_STATUS", "command" },
    [79] = { "ZANTH_CONTROLLER_INFO", "ZANTH_CONTROLLER_INFO", "command" },
    [80] = { "ZANTH_HERE_I_AM_RSP", "ZANTH_HERE_I_AM_RSP", "reply" },
    [81] = { "ZANTH_GET_SAVED_OUTPUTS", "ZANTH_GET_SAVED_OUTPUTS", "command" },
    [82] = { "ZANTH_DRIVE_SAVED_OUTPUTS", "ZANTH_DRIVE_SAVED_OUTPUTS", "command" },
    [83] = { "ZANTH_GET_LOCAL_DEBOUNCE", "ZANTH_GET_LOCAL_DEBOUNCE", "command" },
    [84] = { "ZANTH_SET_LOCAL_DEBOUNCE", "ZANTH_SET_LOCAL_DEBOUNCE", "command" },
    [85] = { "ZANTH_GET_LOCAL_POLL_DELAY", "ZANTH_GET_LOCAL_POLL_DELAY deprecated", "command" },
    [86] = { "ZANTH_SET_LOCAL_POLL_DELAY", "ZANTH_SET_LOCAL_POLL_DELAY deprecated", "command" },
    [87] = { "ZANTH_GET_TZ", "ZANTH_GET_TZ", "command" },
    [88] = { "ZANTH_SET_TZ", "ZANTH_SET_TZ", "command" },
    [89] = { "ZANTH_GET_NUMBER_OF_CARDS", "ZANTH_GET_NUMBER_OF_CARDS", "command" },
    [90] = { "ZANTH_GET_ERROR_LOG", "ZANTH_GET_ERROR_LOG", "command" },
    [91] = { "ZANTH_CMD_INTERFACE_OUTPUT_FUNCTION_2", "ZANTH_CMD_INTERFACE_OUTPUT_FUNCTION_2 deprecated", "command" },
    [92] = { "ZANTH_DISCOVER_INTERFACES_2", "ZANTH_DISCOVER_INTERFACES_2", "command" },
    [93] = { "ZANTH_POST_ACCESS_MSG_TO_ZANTH", "ZANTH_POST_ACCESS_MSG_TO_ZANTH", "command" },
    [94] = { "ZANTH_CMD_OUTPUT_FUNCTION", "ZANTH_CMD_OUTPUT_FUNCTION", "command" },
    [95] = { "ZANTH_GET_INPUT_STATUS", "ZANTH_GET_INPUT_STATUS", "command" },
    [96] = { "ZANTH_REBOOT", "ZANTH_REBOOT", "command" },
    [97] = { "ZANTH_READ_ATOD", "ZANTH_READ_ATOD", "command" },
    [98] = { "ZANTH_SET_MOX_OP_MODE", "ZANTH_SET_MOX_OP_MODE", "command" },
    [99] = { "ZANTH_GET_MOX_OP_MODE", "ZANTH_GET_MOX_OP_MODE", "command" },
    [100] = { "ZANTH_REQUEST_PIN", "ZANTH_REQUEST_PIN", "command" },
    [101] = { "ZANTH_REPORT_PIN_RSP", "ZANTH_REPORT_PIN_RSP", "reply" },
    [102] = { "ZANTH_SET_PASSWORD", "ZANTH_SET_PASSWORD", "command" },
    [103] = { "ZANTH_GET_NUMBER_DEL_RECORDS", "ZANTH_GET_NUMBER_DEL_RECORDS", "command" },
    [104] = { "ZANTH_DELETE_CARD_RECORD_2", "ZANTH_DELETE_CARD_RECORD_2", "command" },
    [105] = { "ZANTH_UNDELETE_CARD_RECORD_2", "ZANTH_UNDELETE_CARD_RECORD_2", "command" },
    [107] = { "ZANTH_EXECUTE_PREINDEX_DB", "ZANTH_EXECUTE_PREINDEX_DB", "command" },
    [108] = { "ZANTH_EXECUTE_RELOAD_DB", "ZANTH_EXECUTE_RELOAD_DB", "command" },
    [109] = { "ZANTH_GET_MOX_MODULE_REVS", "ZANTH_GET_MOX_MODULE_REVS", "command" },
    [110] = { "ZANTH_SET_DHCP_IP", "ZANTH_SET_DHCP_IP", "command" },
    [111] = { "ZANTH_SET_STATIC_IP", "ZANTH_SET_STATIC_IP", "command" },
    [112] = { "ZANTH_ENABLE_P2P", "ZANTH_ENABLE_P2P", "command" },
    [113] = { "ZANTH_DISABLE_P2P", "ZANTH_DISABLE_P2P", "command" },
    [114] = { "ZANTH_DELETE_FILE", "ZANTH_DELETE_FILE", "command" },
    [115] = { "ZANTH_FIRMWARE_COMMAND", "ZANTH_FIRMWARE_COMMAND", "command" },
    [116] = { "ZANTH_UPDATE_CONTACTID_RECORD", "ZANTH_UPDATE_CONTACTID_RECORD", "command" },
    [117] = { "ZANTH_GET_CONTACTID_RECORD", "ZANTH_GET_CONTACTID_RECORD", "command" },
    [118] = { "ZANTH_DELETE_CONTACTID_RECORD", "ZANTH_DELETE_CONTACTID_RECORD", "command" },
    [119] = { "ZANTH_UPDATE_CONTACTID_GROUP_RECORD", "ZANTH_UPDATE_CONTACTID_GROUP_RECORD", "command" },
    [120] = { "ZANTH_DELETE_CONTACTID_GROUP_RECORD", "ZANTH_DELETE_CONTACTID_GROUP_RECORD", "command" },
    [121] = { "ZANTH_GET_CONTACTID_GROUP_RECORD", "ZANTH_GET_CONTACTID_GROUP_RECORD", "command" },
    [122] = { "ZANTH_UPDATE_CONTACTID_COMM_RECORD", "ZANTH_UPDATE_CONTACTID_COMM_RECORD", "command" },
    [123] = { "ZANTH_GET_CONTACTID_COMM_RECORD", "ZANTH_GET_CONTACTID_COMM_RECORD", "command" },
    [124] = { "ZANTH_DELETE_CONTACTID_COMM_RECORD", "ZANTH_DELETE_CONTACTID_COMM_RECORD", "command" },
    [126] = { "ZANTH_GET_SCHEDULE", "ZANTH_GET_SCHEDULE", "command" },
    [127] = { "ZANTH_DELETE_SCHEDULE", "ZANTH_DELETE_SCHEDULE", "command" },
    [150] = { "ZANTH_SMART_CARD_RAW_MODE", "ZANTH_SMART_CARD_RAW_MODE", "command" },
    [151] = { "ZANTH_SMART_CARD_COMMAND_MODE", "ZANTH_SMART_CARD_COMMAND_MODE", "command" },
    [152] = { "ZANTH_SMART_CARD_DATA_RSP", "ZANTH_SMART_CARD_DATA_RSP", "reply" },
    [153] = { "ZANTH_KEY_PAD_DATA_RSP", "ZANTH_KEY_PAD_DATA_RSP", "reply" },
    [154] = { "ZANTH_COMMAND_KEY_DATA_RSP", "ZANTH_COMMAND_KEY_DATA_RSP", "reply" },
    [1001] = { "ZANTH_CMD_INTERFACE_OUTPUT_FUNCTION_RSP", "ZANTH_CMD_INTERFACE_OUTPUT_FUNCTION_RSP deprecated", "reply" },
    [1002] = { "ZANTH_GET_INTERFACE_INPUT_STATUS_RSP", "ZANTH_GET_INTERFACE_INPUT_STATUS_RSP deprecated", "reply" },
    [1003] = { "ZANTH_DOWNLOAD_INTERFACE_PROGRAM_RSP", "ZANTH_DOWNLOAD_INTERFACE_PROGRAM_RSP", "reply" },
    [1004] = { "ZANTH_DOWNLOAD_INTERFACE_EEPROM_RSP", "ZANTH_DOWNLOAD_INTERFACE_EEPROM_RSP", "reply" },
    [1005] = { "ZANTH_SET_HARDWARE_ID_RSP", "ZANTH_SET_HARDWARE_ID_RSP", "reply" },
    [1006] = { "ZANTH_READ_INTERFACE_MEMORY_RSP", "ZANTH_READ_INTERFACE_MEMORY_RSP", "reply" },
    [1007] = { "ZANTH_WRITE_EEPROM_RSP", "ZANTH_WRITE_EEPROM_RSP", "reply" },
    [1008] = { "ZANTH_READ_INTERFACE_ATOD_RSP", "ZANTH_READ_INTERFACE_ATOD_RSP deprecated", "reply" },
    [1009] = { "ZANTH_REBOOT_INTERFACE_RSP", "ZANTH_REBOOT_INTERFACE_RSP  deprecated", "reply" },
    [1010] = { "ZANTH_DISCOVER_INTERFACES_RSP", "ZANTH_DISCOVER_INTERFACES_RSP deprecated", "reply" },
    [1012] = { "ZANTH_RESTART_TASK_RSP", "ZANTH_RESTART_TASK_RSP", "reply" },
    [1013] = { "ZANTH_STOP_TASK_RSP", "ZANTH_STOP_TASK_RSP", "reply" },
    [1014] = { "ZANTH_SET_LOGICAL_INPUT_RSP", "ZANTH_SET_LOGICAL_INPUT_RSP", "reply" },
    [1015] = { "ZANTH_GET_LOGICAL_INPUT_RSP", "ZANTH_GET_LOGICAL_INPUT_RSP", "reply" },
    [1016] = { "ZANTH_GET_CARD_RECORD_RSP", "ZANTH_GET_CARD_RECORD_RSP deprecated", "reply" },
    [1018] = { "ZANTH_SET_TIME_DATE_RSP", "ZANTH_SET_TIME_DATE_RSP", "reply" },
    [1019] = { "ZANTH_GET_TIME_DATE_RSP", "ZANTH_GET_TIME_DATE_RSP", "reply" },
    [1021] = { "ZANTH_ADD_MOD_CARD_RECORD_RSP", "ZANTH_ADD_MOD_CARD_RECORD_RSP deprecated", "reply" },
    [1022] = { "ZANTH_DELETE_CARD_RECORD_RSP", "ZANTH_DELETE_CARD_RECORD_RSP", "reply" },
    [1023] = { "ZANTH_UNDELETE_CARD_RECORD_RSP", "ZANTH_UNDELETE_CARD_RECORD_RSP", "reply" },
    [1024] = { "ZANTH_ADD_MOD_CARD_RECORD_2_RSP", "ZANTH_ADD_MOD_CARD_RECORD_2_RSP", "reply" },
    [1025] = { "ZANTH_GET_CARD_RECORD_2_RSP", "ZANTH_GET_CARD_RECORD_2_RSP", "reply" },
    [1026] = { "ZANTH_GET_CARD_RECORD_3_RSP", "ZANTH_GET_CARD_RECORD_3_RSP", "reply" },
    [1027] = { "ZANTH_ADD_MOD_CARD_RECORD_3_RSP", "ZANTH_ADD_MOD_CARD_RECORD_3_RSP", "reply" },
    [1028] = { "ZANTH_GET_FILE_STATUS_RSP", "ZANTH_GET_FILE_STATUS_RSP", "reply" },
    [1029] = { "ZANTH_SET_FILE_STATUS_RSP", "ZANTH_SET_FILE_STATUS_RSP", "reply" },
    [1030] = { "ZANTH_SEND_FILE_RSP", "ZANTH_SEND_FILE_RSP", "reply" },
    [1033] = { "ZANTH_GET_FILE_MORE", "ZANTH_GET_FILE_MORE", "reply" },
    [1034] = { "ZANTH_GET_FILE_END", "ZANTH_GET_FILE_END", "reply" },
    [1035] = { "ZANTH_GET_CARD_RECORD_4_RSP", "ZANTH_GET_CARD_RECORD_4_RSP", "reply" },
    [1042] = { "ZANTH_IDENTIFY_CONTROLLER", "ZANTH_IDENTIFY_CONTROLLER", "unsolicited" },
    [1043] = { "ZANTH_IDENTIFY_ENCRYPTED_CONTROLLER", "ZANTH_IDENTIFY_ENCRYPTED_CONTROLLER", "unsolicited" },
    [1046] = { "ZANTH_GET_CURRENT_TIME_ZONE_RSP", "ZANTH_GET_CURRENT_TIME_ZONE_RSP", "reply" },
    [1047] = { "ZANTH_CMD_LOCAL_OUTPUT_FUNCTION_RSP", "ZANTH_CMD_LOCAL_OUTPUT_FUNCTION_RSP deprecated", "reply" },
    [1048] = { "ZANTH_GET_LOCAL_INPUT_STATUS_RSP", "ZANTH_GET_LOCAL_INPUT_STATUS_RSP deprecated", "reply" },
    [1049] = { "ZANTH_GET_LOCAL_OUTPUT_STATE_RSP", "ZANTH_GET_LOCAL_OUTPUT_STATE_RSP deprecated", "reply" },
    [1052] = { "ZANTH_EXECUTE_DB_CHANGE_OVER_RSP", "ZANTH_EXECUTE_DB_CHANGE_OVER_RSP", "reply" },
    [1053] = { "ZANTH_READ_LOCAL_ATOD_RSP", "ZANTH_READ_LOCAL_ATOD_RSP deprecated", "reply" },
    [1054] = { "ZANTH_GET_LOCAL_ATOD_LIMITS_RSP", "ZANTH_GET_LOCAL_ATOD_LIMITS_RSP", "reply" },
    [1055] = { "ZANTH_SET_LOCAL_ATOD_LIMITS_RSP", "ZANTH_SET_LOCAL_ATOD_LIMITS_RSP", "reply" },
    [1056] = { "ZANTH_GET_LOCAL_RELAY_TIMER_RSP", "ZANTH_GET_LOCAL_RELAY_TIMER_RSP", "reply" },
    [1057] = { "ZANTH_SET_LOCAL_RELAY_TIMER_RSP", "ZANTH_SET_LOCAL_RELAY_TIMER_RSP", "reply" },
    [1060] = { "ZANTH_ALARM_MESSAGE", "ZANTH_ALARM_MESSAGE", "unsolicited" },
    [1061] = { "ZANTH_EVENT_MESSAGE", "ZANTH_EVENT_MESSAGE", "unsolicited" },
    [1062] = { "ZANTH_EVENT_LOG_RSP", "ZANTH_EVENT_LOG_RSP", "reply" },
    [1065] = { "ZANTH_MESSAGE_BUNDLE", "ZANTH_MESSAGE_BUNDLE", "unsolicited" },
    [1069] = { "ZANTH_HEART_BEAT", "ZANTH_HEART_BEAT", "unsolicited" },
    [1073] = { "ZANTH_CHECK_CARD", "ZANTH_CHECK_CARD", "unsolicited" },
    [1075] = { "ZANTH_RECHECK_LOOKUP_CARD_RSP", "ZANTH_RECHECK_LOOKUP_CARD_RSP", "reply" },
    [1076] = { "ZANTH_GET_CARD_HOLDER_STATUS_RSP", "ZANTH_GET_CARD_HOLDER_STATUS_RSP", "reply" },
    [1077] = { "ZANTH_RESET_CARD_HOLDER_STATUS_RSP", "ZANTH_RESET_CARD_HOLDER_STATUS_RSP", "reply" },
    [1078] = { "ZANTH_RESET_ALL_CARD_HOLDER_STATUS_RSP", "ZANTH_RESET_ALL_CARD_HOLDER_STATUS_RSP", "reply" },
    [1079] = { "ZANTH_CONTROLLER_INFO_RSP", "ZANTH_CONTROLLER_INFO_RSP", "reply" },
    [1080] = { "ZANTH_HERE_I_AM", "ZANTH_HERE_I_AM", "unsolicited" },
    [1081] = { "ZANTH_GET_SAVED_OUTPUTS_RSP", "ZANTH_GET_SAVED_OUTPUTS_RSP", "reply" },
    [1082] = { "ZANTH_DRIVE_SAVED_OUTPUTS_RSP", "ZANTH_DRIVE_SAVED_OUTPUTS_RSP", "reply" },
    [1083] = { "ZANTH_GET_LOCAL_DEBOUNCE_RSP", "ZANTH_GET_LOCAL_DEBOUNCE_RSP", "reply" },
    [1084] = { "ZANTH_SET_LOCAL_DEBOUNCE_RSP", "ZANTH_SET_LOCAL_DEBOUNCE_RSP", "reply" },
    [1085] = { "ZANTH_GET_LOCAL_POLL_DELAY_RSP", "ZANTH_GET_LOCAL_POLL_DELAY_RSP deprecated", "reply" },
    [1086] = { "ZANTH_SET_LOCAL_POLL_DELAY_RSP", "ZANTH_SET_LOCAL_POLL_DELAY_RSP deprecated", "reply" },
    [1087] = { "ZANTH_GET_TZ_RSP", "ZANTH_GET_TZ_RSP", "reply" },
    [1088] = { "ZANTH_SET_TZ_RSP", "ZANTH_SET_TZ_RSP", "reply" },
    [1089] = { "ZANTH_GET_NUMBER_OF_CARDS_RSP", "ZANTH_GET_NUMBER_OF_CARDS_RSP", "reply" },
    [1090] = { "ZANTH_GET_ERROR_LOG_RSP", "ZANTH_GET_ERROR_LOG_RSP", "reply" },
    [1091] = { "ZANTH_CMD_INTERFACE_OUTPUT_FUNCTION_2_RSP", "ZANTH_CMD_INTERFACE_OUTPUT_FUNCTION_2_RSP deprecated", "reply" },
    [1092] = { "ZANTH_DISCOVER_INTERFACES_2_RSP", "ZANTH_DISCOVER_INTERFACES_2_RSP", "reply" },
    [1093] = { "ZANTH_POST_ACCESS_MSG_TO_HOST", "ZANTH_POST_ACCESS_MSG_TO_HOST", "unsolicited" },
    [1094] = { "ZANTH_CMD_OUTPUT_FUNCTION_RSP", "ZANTH_CMD_OUTPUT_FUNCTION_RSP", "reply" },
    [1095] = { "ZANTH_GET_INPUT_STATUS_RSP", "ZANTH_GET_INPUT_STATUS_RSP", "reply" },
    [1096] = { "ZANTH_REBOOT_RSP", "ZANTH_REBOOT_RSP", "reply" },
    [1097] = { "ZANTH_READ_ATOD_RSP", "ZANTH_READ_ATOD_RSP", "reply" },
    [1098] = { "ZANTH_SET_MOX_OP_MODE_RSP", "ZANTH_SET_MOX_OP_MODE_RSP", "reply" },
    [1099] = { "ZANTH_GET_MOX_OP_MODE_RSP", "ZANTH_GET_MOX_OP_MODE_RSP", "reply" },
    [1100] = { "ZANTH_REQUEST_PIN_RSP", "ZANTH_REQUEST_PIN_RSP", "reply" },
    [1101] = { "ZANTH_REPORT_PIN", "ZANTH_REPORT_PIN", "unsolicited" },
    [1102] = { "ZANTH_SET_PASSWORD_RSP", "ZANTH_SET_PASSWORD_RSP", "reply" },
    [1103] = { "ZANTH_GET_NUMBER_DEL_RECORDS_RSP", "ZANTH_GET_NUMBER_DEL_RECORDS_RSP", "reply" },
    [1104] = { "ZANTH_DELETE_CARD_RECORD_2_RSP", "ZANTH_DELETE_CARD_RECORD_2_RSP", "reply" },
    [1105] = { "ZANTH_UNDELETE_CARD_RECORD_2_RSP", "ZANTH_UNDELETE_CARD_RECORD_2_RSP", "reply" },
    [1107] = { "ZANTH_EXECUTE_PREINDEX_DB_RSP", "ZANTH_EXECUTE_PREINDEX_DB_RSP", "reply" },
    [1108] = { "ZANTH_EXECUTE_RELOAD_DB_RSP", "ZANTH_EXECUTE_RELOAD_DB_RSP", "reply" },
    [1109] = { "ZANTH_GET_MOX_MODULE_REVS_RSP", "ZANTH_GET_MOX_MODULE_REVS_RSP", "reply" },
    [1110] = { "ZANTH_SET_DHCP_IP_RSP", "ZANTH_SET_DHCP_IP_RSP", "reply" },
    [1111] = { "ZANTH_SET_STATIC_IP_RSP", "ZANTH_SET_STATIC_IP_RSP", "reply" },
    [1112] = { "ZANTH_P2P_RSP", "ZANTH_P2P_RSP", "reply" },
    [1113] = { "ZANTH_DELETE_FILE_RSP", "ZANTH_DELETE_FILE_RSP", "reply" },
    [1114] = { "ZANTH_EXECUTE_FIRMWARE_RSP", "ZANTH_EXECUTE_FIRMWARE_RSP", "reply" },
    [1116] = { "CONTACT_ID_RESPONSE_RSP", "CONTACT_ID_RESPONSE_RSP", "reply" },
    [1150] = { "ZANTH_SMART_CARD_RAW_MODE_RSP", "ZANTH_SMART_CARD_RAW_MODE_RSP", "reply" },
    [1151] = { "ZANTH_SMART_CARD_COMMAND_MODE_RSP", "ZANTH_SMART_CARD_COMMAND_MODE_RSP", "reply" },
    [1152] = { "ZANTH_SMART_CARD_DATA", "ZANTH_SMART_CARD_DATA", "unsolicited" },
    [1153] = { "ZANTH_KEY_PAD_DATA", "ZANTH_KEY_PAD_DATA", "unsolicited" },
    [1154] = { "ZANTH_COMMAND_KEY_DATA", "ZANTH_COMMAND_KEY_DATA", "unsolicited" },
    [9910] = { "ZANTH_UNKNOWN_COMMAND", "ZANTH_UNKNOWN_COMMAND", "reply" },
    [9920] = { "ZANTH_UNABLE_TO_PROCESS_COMMAND", "ZANTH_UNABLE_TO_PROCESS_COMMAND", "reply" },
    [9980] = { "ZANTH_FILE_TRANSFER_ERROR", "ZANTH_FILE_TRANSFER_ERROR", "either side" },
    [9990] = { "ZANTH_TERMINATE", "ZANTH_TERMINATE", "either side" },
}
-- Sent although the name table has no row for them.
local UNNAMED_CODES = {
    [125] = { "ZANTH_UPDATE_SCHEDULE", "command" },
}
-- END CODE TABLE

local CLEAR_HEADER = 10
local ENCRYPTED_HEADER = 5
-- The library refuses a clear frame longer than its buffers: 4117 bytes.
local LARGEST_CLEAR_FRAME = 4117

---------------------------------------------------------------------------------------------
-- Fields

local code_names = {}
for code, row in pairs(CODES) do code_names[code] = row[2] end
for code, row in pairs(UNNAMED_CODES) do code_names[code] = row[1] end

local decision_names = { [0] = "deny", [1] = "grant" }

-- Each field with its label and kind: the named payload fields are made from the text, as a
-- number where the kind is one.
local f, LABEL, KIND = {}, {}, {}
local function def(key, kind, abbr, label, ...)
    local maker = ({ int32 = ProtoField.int32, uint32 = ProtoField.uint32, uint16 = ProtoField.uint16,
        string = ProtoField.string, bytes = ProtoField.bytes, bool = ProtoField.bool })[kind]
    f[key] = maker("zanth." .. abbr, label, ...)
    LABEL[key] = label
    KIND[key] = kind
end

def("code", "uint16", "code", "Code", base.DEC, code_names)
def("length", "uint16", "length", "Length", base.DEC, nil, nil,
    "Total length of the frame in bytes, header included")
def("name", "string", "name", "Name")
def("constant", "string", "constant", "Constant")
def("class", "string", "class", "Class")
def("from", "string", "from", "From")
def("payload_length", "uint16", "payload_length", "Payload length")
def("payload", "bytes", "payload", "Payload")
def("field", "string", "field", "Field")
def("encrypted", "bool", "encrypted", "Encrypted")
def("cipher_length", "uint16", "cipher_length", "Cipher text length")
def("cipher", "bytes", "cipher", "Cipher text")
def("skipped", "bytes", "skipped", "Bytes skipped")

def("result", "int32", "result", "Result")
def("identity", "string", "identity", "Identity")
def("mac", "string", "mac", "MAC")
def("firmware", "string", "firmware", "Firmware")
def("model", "string", "model", "Model")
def("serial", "string", "serial", "Serial number")
def("msgid", "uint32", "msgid", "Message ID")
def("date", "string", "date", "Date")
def("time", "string", "time", "Time")
def("event_class", "uint32", "event_class", "Class code")
def("priority", "uint32", "priority", "Priority")
def("door", "uint32", "door", "Door")
def("description", "string", "description", "Description")
def("text", "string", "text", "Text")
def("bundle_entry", "string", "bundle.entry", "Bundled message")
def("bundle_code", "uint16", "bundle.code", "Bundled code", base.DEC, code_names)
def("card", "string", "card", "Card number")
def("facility", "string", "facility", "Facility")
def("decision", "uint32", "decision", "Decision", base.DEC, decision_names)
def("outcome", "string", "outcome", "Outcome")
def("pin", "string", "pin", "PIN")
def("seconds", "uint32", "seconds", "Seconds")
def("digits", "uint32", "digits", "Digits")
def("data", "string", "data", "Data")
def("keys", "string", "keys", "Keys")
def("unknown_code", "uint16", "unknown_code", "Code not known to the controller")
def("target", "uint32", "target", "Target")
def("output", "uint32", "output", "Output")
def("state", "uint32", "state", "State")
def("input_mask", "string", "input_mask", "Inputs on (mask)")
def("input_states", "string", "input_states", "Input states")
def("month", "uint32", "month", "Month")
def("day", "uint32", "day", "Day")
def("year", "uint32", "year", "Year")
def("hour", "uint32", "hour", "Hour")
def("minute", "uint32", "minute", "Minute")
def("second", "uint32", "second", "Second")
def("zone", "string", "zone", "Time zone")
def("msgid_first", "uint32", "msgid_first", "First message ID")
def("msgid_last", "uint32", "msgid_last", "Last message ID")
def("count", "uint32", "count", "Count")
def("capacity", "uint32", "capacity", "Capacity")
def("path", "string", "path", "Controller path")
def("permission", "string", "permission", "Permission")
def("chunk", "bytes", "chunk", "File chunk")
def("chunk_size", "uint32", "chunk_size", "Chunk size")
def("chunk_last", "bool", "chunk_last", "Last chunk")

def("card_set", "uint32", "card.set_id", "Card set ID")
def("no_format", "uint32", "card.no_format", "No format")
def("access_type", "uint32", "card.access_type", "Access type")
def("unique_id", "uint32", "card.unique_id", "Unique ID")
def("revision", "string", "card.field7", "Field 7")
def("access_group", "uint32", "card.access_group", "Access group")
def("passback_exempt", "uint32", "card.passback_exempt", "Passback exempt")
def("extended_access", "uint32", "card.extended_access", "Extended access")
def("pin_commands", "uint32", "card.pin_commands", "PIN commands")
def("reserved", "string", "card.reserved", "Reserved")
def("start", "string", "card.start", "Valid from")
def("end", "string", "card.end", "Valid to")
def("escort", "uint32", "card.escort_id", "Escort ID")
def("in_elevator", "uint32", "card.in_elevator_group", "In-schedule elevator group")
def("out_elevator", "uint32", "card.out_elevator_group", "Out-schedule elevator group")
def("pin_exempt", "uint32", "card.pin_exempt", "PIN exempt")
def("role", "uint32", "card.role", "Card role")

local field_list = {}
for _, field in pairs(f) do field_list[#field_list + 1] = field end
zanth.fields = field_list

local e = {
    bad_header = ProtoExpert.new("zanth.expert.bad_header", "Malformed frame header",
        expert.group.MALFORMED, expert.severity.ERROR),
    bad_length = ProtoExpert.new("zanth.expert.bad_length", "Length shorter than the header",
        expert.group.MALFORMED, expert.severity.ERROR),
    too_long = ProtoExpert.new("zanth.expert.too_long", "Frame longer than the library accepts",
        expert.group.PROTOCOL, expert.severity.WARN),
    unknown_code = ProtoExpert.new("zanth.expert.unknown_code", "Code without a row in the code list",
        expert.group.UNDECODED, expert.severity.WARN),
    empty_field = ProtoExpert.new("zanth.expert.empty_field", "Empty field",
        expert.group.PROTOCOL, expert.severity.NOTE),
    unterminated = ProtoExpert.new("zanth.expert.unterminated", "Last field not ended by ';'",
        expert.group.PROTOCOL, expert.severity.NOTE),
    not_number = ProtoExpert.new("zanth.expert.not_number", "Field is not a number",
        expert.group.PROTOCOL, expert.severity.WARN),
    skipped = ProtoExpert.new("zanth.expert.skipped", "Bytes skipped to the next frame header",
        expert.group.MALFORMED, expert.severity.ERROR),
    encrypted = ProtoExpert.new("zanth.expert.encrypted", "Encrypted frame",
        expert.group.SECURITY, expert.severity.CHAT),
    partial = ProtoExpert.new("zanth.expert.partial", "Frame continues beyond this segment",
        expert.group.REASSEMBLE, expert.severity.NOTE),
}
zanth.experts = { e.bad_header, e.bad_length, e.too_long, e.unknown_code, e.empty_field,
    e.unterminated, e.not_number, e.skipped, e.encrypted, e.partial }

zanth.prefs.ports = Pref.range("TCP ports", "3001",
    "The TCP ports of the controllers' links: the host's listening port, and the ports on " ..
    "which controllers are called (a list and ranges, such as 3001,4001-4010)", 65535)

---------------------------------------------------------------------------------------------
-- Payload layouts: for each code, the names of its ';' fields in order. A name is a key of
-- `f`; "rest" takes the rest of the payload as one text. Fields beyond a layout are shown as
-- plain fields.

local RECORD_ADD_1 = { "card_set", "no_format", "card", "pin", "access_type", "unique_id",
    "access_group", "access_group", "access_group", "access_group", "access_group",
    "access_group", "access_group", "access_group", "passback_exempt", "reserved",
    "extended_access", "pin_commands", "reserved", "start", "end", "escort", "in_elevator",
    "out_elevator", "reserved" }
local function extend(list, ...)
    local out = {}
    for _, v in ipairs(list) do out[#out + 1] = v end
    for _, v in ipairs({ ... }) do out[#out + 1] = v end
    return out
end
local RECORD_ADD_2 = extend(RECORD_ADD_1, "pin_exempt")
local RECORD_ADD_3 = extend(RECORD_ADD_2, "role")
local RECORD_READ = { "result", "card", "card_set", "no_format", "pin", "access_type",
    "unique_id", "revision", "access_group", "access_group", "access_group", "access_group",
    "access_group", "access_group", "access_group", "access_group", "passback_exempt",
    "reserved", "extended_access", "reserved", "pin_commands", "reserved", "start", "end",
    "escort", "in_elevator", "out_elevator", "reserved", "pin_exempt", "role" }
local RECORD_BY_CARD = { "card", "card_set", "no_format", "pin" }
local MESSAGE = { "mac", "msgid", "date", "time", "event_class", "priority", "door", "description" }
local RESULT = { "result" }

local LAYOUTS = {
    -- identification and the controller's description
    [1042] = { "identity", "firmware" },
    [1043] = { "identity", "firmware" },
    [1079] = { "model", "firmware", "mac", "serial" },
    [1080] = { "mac", "model", "firmware", "text" },
    -- events, alarms, heartbeats
    [1060] = MESSAGE,
    [1061] = MESSAGE,
    [1069] = { "mac", "date", "time", "text" },
    -- look-ups and decisions, PINs, what the door did
    [1073] = { "mac", "door", "card", "facility" },
    -- the host's own acknowledgements that carry "0;"
    [73] = RESULT,
    [101] = RESULT,
    [152] = RESULT,
    [153] = RESULT,
    [154] = RESULT,
    [75] = { "door", "card", "decision" },
    [100] = { "door", "seconds", "digits" },
    [1101] = { "mac", "door", "pin" },
    [1093] = { "mac", "door", "card", "outcome" },
    [93] = { "rest" },
    [1152] = { "mac", "door", "data" },
    [1153] = { "mac", "door", "keys" },
    [1154] = { "mac", "door", "keys" },
    -- card records
    [21] = RECORD_ADD_1,
    [24] = RECORD_ADD_2,
    [27] = RECORD_ADD_3,
    [16] = RECORD_BY_CARD,
    [25] = RECORD_BY_CARD,
    [35] = RECORD_BY_CARD,
    [26] = { "unique_id", "card_set", "no_format", "pin" },
    [22] = { "card_set", "no_format", "card", "pin" },
    [23] = { "card_set", "no_format", "card", "pin" },
    [104] = { "unique_id" },
    [105] = { "unique_id" },
    [76] = { "unique_id" },
    [77] = { "unique_id" },
    [1016] = RECORD_READ,
    [1025] = RECORD_READ,
    [1026] = RECORD_READ,
    [1035] = RECORD_READ,
    [1089] = { "result", "count", "capacity" },
    [1103] = { "result", "count" },
    -- file transfer (the chunks are shown whole, see CHUNKS)
    [30] = { "path" },
    [33] = { "path" },
    [28] = { "path" },
    [114] = { "path" },
    [29] = { "path", "permission" },
    [1028] = { "result", "permission" },
    [9980] = { "result", "text" },
    -- outputs, inputs, clock, uploads
    [94] = { "target", "output", "state" },
    [91] = { "target", "output", "state" },
    [95] = { "target" },
    [1095] = { "result", "input_mask", "input_states" },
    [18] = { "month", "day", "year", "hour", "minute", "second" },
    [1019] = { "result", "month", "day", "year", "hour", "minute", "second" },
    [1046] = { "result", "zone" },
    [1087] = { "result", "zone" },
    [88] = { "zone" },
    [61] = { "event_class" },
    [64] = { "event_class" },
    [62] = { "priority" },
    [65] = { "priority" },
    [66] = { "msgid_first", "msgid_last" },
    [1090] = { "count" },
    [9910] = { "unknown_code" },
}

-- Raw chunks of a file, whose length only the frame's length gives; true marks the last.
local CHUNKS = { [31] = false, [32] = true, [1033] = false, [1034] = true }

---------------------------------------------------------------------------------------------
-- Per-connection state, kept by TCP stream: where the controller is, and from which frame on
-- the link is encrypted (the frame after a controller's 1043). Both depend only on frame
-- numbers, so every pass of Wireshark's dissection sees the same.

local tcp_stream = Field.new("tcp.stream")
local streams = {}

function zanth.init()
    streams = {}
end

local function stream_of(pinfo)
    local key
    local ok, value = pcall(tcp_stream)
    if ok and value then key = "s" .. tostring(value.value) end
    if not key then
        local a = tostring(pinfo.src) .. ":" .. tostring(pinfo.src_port)
        local b = tostring(pinfo.dst) .. ":" .. tostring(pinfo.dst_port)
        key = a < b and (a .. "-" .. b) or (b .. "-" .. a)
    end
    local st = streams[key]
    if not st then
        st = {}
        streams[key] = st
    end
    return st
end

local function endpoint(pinfo)
    return tostring(pinfo.src) .. ":" .. tostring(pinfo.src_port)
end

-- Who sent this packet, when the stream has told which side the controller is.
local function sender(st, pinfo)
    if not st.controller then return nil end
    return st.controller == endpoint(pinfo) and "controller" or "host"
end

local function is_digit(byte)
    return byte >= 48 and byte <= 57
end

-- Four decimal digits at `at` of the string, or nil.
local function four_digits(s, at)
    local value = 0
    for i = at, at + 3 do
        local b = s:byte(i)
        if not b or not is_digit(b) then return nil end
        value = value * 10 + (b - 48)
    end
    return value
end

-- Whether `s` (up to `n` bytes) can be the start of a header of the given pattern, where 'd'
-- is a digit and ';' itself.
local function matches_prefix(s, pattern)
    for i = 1, math.min(#s, #pattern) do
        local b = s:byte(i)
        local want = pattern:sub(i, i)
        if want == "d" then
            if not is_digit(b) then return false end
        elseif string.char(b) ~= want then
            return false
        end
    end
    return true
end

local CLEAR_PATTERN = "dddd;dddd;"
local ENCRYPTED_PATTERN = "dddd;"

local function code_row(code)
    local row = CODES[code]
    if row then return row[1], row[2], row[3] end
    local unnamed = UNNAMED_CODES[code]
    local name = string.format("TOTALLY UNKNOWN CODE (%d)", code)
    if unnamed then return unnamed[1], name, unnamed[2] end
    return nil, name, nil
end

-- A whole clear header at the start of `s`: code and length, or nil.
local function clear_header(s)
    if #s < CLEAR_HEADER or not matches_prefix(s, CLEAR_PATTERN) then return nil end
    return four_digits(s, 1), four_digits(s, 6)
end

-- The total length of a whole header at `i` of `s` that a resync may take: a clear header of a
-- known code and a sound length, or on an encrypted link a length prefix with cipher text.
-- "partial" for the start of one at the end of the data; nil for anything else.
local function header_at(s, i, encrypted)
    local size = encrypted and ENCRYPTED_HEADER or CLEAR_HEADER
    local rest = s:sub(i, i + size - 1)
    local pattern = encrypted and ENCRYPTED_PATTERN or CLEAR_PATTERN
    if #rest < size then
        return (#rest > 0 and matches_prefix(rest, pattern)) and "partial" or nil
    end
    if not matches_prefix(rest, pattern) then return nil end
    if encrypted then
        local total = four_digits(rest, 1)
        return total > ENCRYPTED_HEADER and total or nil
    end
    local code, total = clear_header(rest)
    if total >= CLEAR_HEADER and (CODES[code] or UNNAMED_CODES[code]) then return total end
    return nil
end

-- Where the next frame may start after bytes that could not be read (1-based, from `from`).
-- Digits and ';' in what was skipped can look like a header too, so a header whose frame ends
-- where the data ends, or where another header starts, comes first; then the start of a
-- header at the end of the data; then any header, whose frame runs on beyond the data.
local function next_header(s, from, encrypted)
    local runs_on = nil
    for i = from, #s do
        local total = header_at(s, i, encrypted)
        if total == "partial" then return i end
        if total then
            local after = i + total
            if after == #s + 1 or (after <= #s and header_at(s, after, encrypted)) then return i end
            if after > #s + 1 and not runs_on then runs_on = i end
        end
    end
    return runs_on
end

---------------------------------------------------------------------------------------------
-- Payload fields

local LIMIT = { int32 = { -2147483648, 2147483647 }, uint32 = { 0, 4294967295 }, uint16 = { 0, 65535 } }

-- A named field from its text: a number where its kind is one, and the text with a warning
-- where it isn't.
local function add_value(tree, key, range, text)
    local limit = LIMIT[KIND[key]]
    if limit then
        local number = text:match("^%-?%d+$") and tonumber(text)
        if number and number >= limit[1] and number <= limit[2] then
            return tree:add(f[key], range, number)
        end
        local item = tree:add(f.field, range, text)
        item:set_text(string.format("%s: %s", LABEL[key], text))
        item:add_proto_expert_info(e.not_number, string.format("%s is not a number in range", LABEL[key]))
        return item
    end
    return tree:add(f[key], range, text)
end

-- The library reads the MAC from an identification as the identity field after its first nine
-- characters (the product line's octets), upper-cased.
local function add_identity(tree, range, text)
    local item = tree:add(f.identity, range, text)
    if #text > 9 then
        local mac = text:sub(10):upper()
        item:add(f.mac, range:range(9, #text - 9), mac):append_text(" (as the library reads it)")
    end
    return item
end

-- Splits `bytes` (a Lua string of the payload, starting at `base` in `tvb`) into its fields:
-- each ends at a ';', and what follows the last ';' is a field of its own.
local function split_fields(bytes)
    local fields = {}
    local start = 1
    while start <= #bytes do
        local stop = bytes:find(";", start, true)
        if not stop then
            fields[#fields + 1] = { start, #bytes, false }
            break
        end
        fields[#fields + 1] = { start, stop - 1, true }
        start = stop + 1
    end
    return fields
end

local function add_fields(tvb, tree, base, bytes, layout)
    local fields = split_fields(bytes)
    local groups = 0
    for index, fld in ipairs(fields) do
        local first, last, ended = fld[1], fld[2], fld[3]
        local key = layout and layout[index]
        if key == "rest" then
            local range = tvb(base + first - 1, #bytes - first + 1)
            tree:add(f.text, range, bytes:sub(first))
            return
        end
        local text = bytes:sub(first, last)
        local length = last - first + 1
        -- An empty field is shown over its ';' so that it has a place in the bytes.
        local range = tvb(base + first - 1, length > 0 and length or 1)
        local item
        if key == "identity" then
            item = add_identity(tree, range, text)
        elseif key == "access_group" then
            groups = groups + 1
            item = add_value(tree, key, range, text)
            item:set_text(string.format("Access group %d: %s", groups, text))
        elseif key then
            item = add_value(tree, key, range, text)
        else
            item = tree:add(f.field, range, text)
            item:set_text(string.format("Field %d: %s", index, text))
        end
        if length == 0 then item:add_proto_expert_info(e.empty_field,
            "Empty field: a reader that merges delimiters shifts the fields after it") end
        if not ended then item:add_proto_expert_info(e.unterminated) end
    end
end

-- A bundle: "code;text^" per message, each shown with the fields of its code.
local function add_bundle(tvb, tree, base, bytes)
    local start = 1
    local n = 0
    while start <= #bytes do
        local stop = bytes:find("^", start, true) or (#bytes + 1)
        local entry = bytes:sub(start, stop - 1)
        n = n + 1
        local range = tvb(base + start - 1, math.max(stop - start, 1))
        local sub = tree:add(f.bundle_entry, range, entry)
        local semicolon = entry:find(";", 1, true)
        local code = semicolon and entry:sub(1, semicolon - 1):match("^%d+$") and
            tonumber(entry:sub(1, semicolon - 1))
        if code then
            sub:set_text(string.format("Bundled message %d: %d %s", n, code, code_names[code] or "?"))
            sub:add(f.bundle_code, tvb(base + start - 1, semicolon - 1), code)
            local body = entry:sub(semicolon + 1)
            if #body > 0 then
                add_fields(tvb, sub, base + start - 1 + semicolon, body, LAYOUTS[code])
            end
        else
            sub:set_text(string.format("Bundled message %d: %s", n, entry))
            sub:add_proto_expert_info(e.not_number, "Bundled message without a code")
        end
        start = stop + 1
    end
end

---------------------------------------------------------------------------------------------
-- One frame

local function summary_of(code, name)
    return string.format("%d %s", code, name)
end

local function dissect_clear(tvb, pinfo, tree, st, offset, total, code)
    local constant, name, class = code_row(code)
    local from = code < 1000 and "host" or "controller"
    if class == "either side" then from = sender(st, pinfo) or "either side" end
    local t = tree:add(zanth, tvb(offset, total))
    t:set_text(string.format("Zanth %d %s (%s, %s), %d bytes", code, name, class or "unknown class",
        from, total))
    local code_item = t:add(f.code, tvb(offset, 4), code)
    if not CODES[code] then
        code_item:add_proto_expert_info(e.unknown_code, UNNAMED_CODES[code] and
            string.format("No row in the code list: the library logs it as \"%s\"; sent as %s",
                name, constant) or string.format("No row in the code list: \"%s\"", name))
    end
    local length_item = t:add(f.length, tvb(offset + 5, 4), total)
    if total > LARGEST_CLEAR_FRAME then
        length_item:add_proto_expert_info(e.too_long, string.format(
            "Frame of %d bytes: the library accepts at most %d", total, LARGEST_CLEAR_FRAME))
    end
    t:add(f.name, tvb(offset, 4), name):set_generated()
    if constant then t:add(f.constant, tvb(offset, 4), constant):set_generated() end
    if class then t:add(f.class, tvb(offset, 4), class):set_generated() end
    t:add(f.from, tvb(offset, 4), from):set_generated()
    t:add(f.encrypted, tvb(offset, 4), false):set_generated()
    local size = total - CLEAR_HEADER
    t:add(f.payload_length, tvb(offset + 5, 4), size):set_generated()
    if size == 0 then return summary_of(code, name) end

    local base = offset + CLEAR_HEADER
    local range = tvb(base, size)
    local p = t:add(f.payload, range)
    if CHUNKS[code] ~= nil then
        p:set_text(string.format("File chunk: %d bytes%s", size, CHUNKS[code] and ", the last" or ""))
        p:add(f.chunk, range)
        p:add(f.chunk_size, range, size):set_generated()
        p:add(f.chunk_last, range, CHUNKS[code]):set_generated()
        return string.format("%s, chunk of %d bytes", summary_of(code, name), size)
    end
    local bytes = tvb:raw(base, size)
    p:set_text(string.format("Payload: %s", (bytes:gsub("[^\32-\126]", "."))))
    if code == 1065 then
        add_bundle(tvb, p, base, bytes)
    else
        local layout = LAYOUTS[code]
        -- An answer of the controller's carries its result first, unless said otherwise.
        if not layout and class == "reply" and code >= 1000 then layout = RESULT end
        add_fields(tvb, p, base, bytes, layout)
    end
    return summary_of(code, name)
end

local function dissect_encrypted(tvb, pinfo, tree, st, offset, total)
    local from = sender(st, pinfo) or "unknown side"
    local t = tree:add(zanth, tvb(offset, total))
    t:set_text(string.format("Zanth encrypted frame (%s), %d bytes", from, total))
    t:add(f.length, tvb(offset, 4), total)
    t:add(f.encrypted, tvb(offset, 4), true):set_generated()
    t:add(f.from, tvb(offset, 4), from):set_generated()
    local cipher = total - ENCRYPTED_HEADER
    t:add(f.cipher_length, tvb(offset, 4), cipher):set_generated()
    if cipher > 0 then
        local item = t:add(f.cipher, tvb(offset + ENCRYPTED_HEADER, cipher))
        item:add_proto_expert_info(e.encrypted,
            string.format("Encrypted frame: %d bytes of cipher text", cipher))
    end
    return string.format("Encrypted, %d bytes", total)
end

local function mark_skipped(tvb, tree, offset, length, why)
    local t = tree:add(zanth, tvb(offset, length))
    t:set_text(string.format("Zanth: %d bytes that are no frame", length))
    local item = t:add(f.skipped, tvb(offset, length))
    item:add_proto_expert_info(e.bad_header, why)
    item:add_proto_expert_info(e.skipped,
        string.format("%d bytes skipped to the next frame header", length))
end

---------------------------------------------------------------------------------------------
-- The dissector: every frame in this stretch of the stream, asking TCP for more where a frame
-- goes on beyond it.

function zanth.dissector(tvb, pinfo, tree)
    local len = tvb:len()
    if len == 0 then return 0 end
    pinfo.cols.protocol = "ZANTH"
    local st = stream_of(pinfo)
    local summaries = {}
    local all = tvb:raw(0, len)
    local offset = 0
    -- A 1043 earlier in this same stretch makes what follows it encrypted.
    local encrypted_here = false

    -- The frames of this stretch in the Info column; what TCP holds back for the next
    -- segment shows there when it is whole.
    local function finish()
        if #summaries > 0 then pinfo.cols.info = table.concat(summaries, ", ") end
        return len
    end

    local function want_more(at, missing)
        if pinfo.can_desegment > 0 then
            pinfo.desegment_offset = at
            pinfo.desegment_len = missing or DESEGMENT_ONE_MORE_SEGMENT
            return true
        end
        local t = tree:add(zanth, tvb(at, len - at))
        t:set_text(string.format("Zanth: start of a frame, %d bytes", len - at))
        t:add_proto_expert_info(e.partial)
        return false
    end

    -- Marks the bytes from `at` up to the next frame header, searched for from `from`, as no
    -- frame; returns where to go on.
    local function skip(at, from, why, encrypted)
        local next_at = next_header(all, from + 1, encrypted)
        local stop = next_at and (next_at - 1) or len
        if stop > at then
            mark_skipped(tvb, tree, at, stop - at, why)
            summaries[#summaries + 1] = "[malformed]"
        end
        return stop
    end

    while offset < len do
        local avail = len - offset
        local head = all:sub(offset + 1, offset + CLEAR_HEADER)
        local encrypted = encrypted_here or (st.encrypted_from ~= nil and pinfo.number > st.encrypted_from)
        if not encrypted and not matches_prefix(head, CLEAR_PATTERN) and
            not (st.clear_from ~= nil and st.clear_from < pinfo.number) and
            matches_prefix(head, ENCRYPTED_PATTERN) and #head >= ENCRYPTED_HEADER then
            -- No clear frame has been seen on this link yet, and this looks like a length
            -- prefix: an encrypted link whose identification wasn't captured.
            encrypted = true
        end

        if encrypted then
            if not matches_prefix(head, ENCRYPTED_PATTERN) then
                offset = skip(offset, offset + 1, "Encrypted frame header is not \"dddd;\"", true)
            elseif avail < ENCRYPTED_HEADER then
                if want_more(offset) then return finish() end
                offset = len
            else
                local total = four_digits(head, 1)
                if total <= ENCRYPTED_HEADER then
                    local t = tree:add(zanth, tvb(offset, ENCRYPTED_HEADER))
                    t:set_text(string.format("Zanth encrypted frame with length %d", total))
                    t:add(f.length, tvb(offset, 4), total):add_proto_expert_info(e.bad_length,
                        string.format("Length %d leaves no cipher text", total))
                    summaries[#summaries + 1] = "[malformed]"
                    offset = offset + ENCRYPTED_HEADER
                elseif avail < total then
                    if want_more(offset, total - avail) then return finish() end
                    offset = len
                else
                    summaries[#summaries + 1] = dissect_encrypted(tvb, pinfo, tree, st, offset, total)
                    offset = offset + total
                end
            end
        elseif not matches_prefix(head, CLEAR_PATTERN) then
            offset = skip(offset, offset + 1, string.format("Frame header is not \"dddd;dddd;\": %q",
                (head:gsub("[^\32-\126]", "."))), false)
        elseif avail < CLEAR_HEADER then
            if want_more(offset) then return finish() end
            offset = len
        else
            local code, total = clear_header(head)
            if total < CLEAR_HEADER then
                local t = tree:add(zanth, tvb(offset, CLEAR_HEADER))
                t:set_text(string.format("Zanth %d with length %d", code, total))
                t:add(f.code, tvb(offset, 4), code)
                t:add(f.length, tvb(offset + 5, 4), total):add_proto_expert_info(e.bad_length,
                    string.format("Length %d is below the header's own %d bytes", total, CLEAR_HEADER))
                summaries[#summaries + 1] = "[malformed]"
                offset = skip(offset + CLEAR_HEADER, offset + CLEAR_HEADER,
                    "Bytes after a frame of impossible length", false)
            elseif avail < total then
                if want_more(offset, total - avail) then return finish() end
                offset = len
            else
                -- The side that sends codes from 1000 up (other than 9980 and 9990) is the
                -- controller; its 1043 makes the rest of the link encrypted.
                if code >= 1000 and code < 9900 and not st.controller then
                    st.controller = endpoint(pinfo)
                elseif code < 1000 and not st.controller then
                    st.controller = tostring(pinfo.dst) .. ":" .. tostring(pinfo.dst_port)
                end
                if code == 1043 then
                    encrypted_here = true
                    if not st.encrypted_from or pinfo.number < st.encrypted_from then
                        st.encrypted_from = pinfo.number
                    end
                elseif not st.clear_from or pinfo.number < st.clear_from then
                    st.clear_from = pinfo.number
                end
                summaries[#summaries + 1] = dissect_clear(tvb, pinfo, tree, st, offset, total, code)
                offset = offset + total
            end
        end
    end
    return finish()
end

---------------------------------------------------------------------------------------------
-- Ports

local registered = nil

local function register_ports()
    local tcp = DissectorTable.get("tcp.port")
    if registered and registered ~= "" then tcp:remove(registered, zanth) end
    registered = tostring(zanth.prefs.ports or "")
    if registered ~= "" then tcp:add(registered, zanth) end
end

function zanth.prefs_changed()
    register_ports()
end

register_ports()
