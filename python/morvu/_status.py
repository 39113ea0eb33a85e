"""The status codes with their texts.

Made by scripts/status-codes from src/frame/status/StatusCodes.inc.
"""

import enum
from typing import Dict


class Status(enum.IntEnum):
    """The codes that the library sets."""

    COMPLETED = 0
    READY_TO_RUN = 1
    CANCELED = 2
    NO_ATA_DRIVER = 3
    NO_COMMUNICATION = 4
    NOT_RUN = 5
    MAX_LBA_ZERO = 6
    FREE_SPACE_UNKNOWN = 7
    NOT_ENOUGH_FREE_SPACE = 8
    FILE_NOT_OPENED = 9
    FILE_NOT_READ = 10
    DATA_MISMATCH = 11
    SECURITY_FROZEN = 12
    HAS_PARTITION = 13
    NO_PARTITION = 14
    ERASE_UNIT_FAILED = 15
    ERASE_PREPARE_FAILED = 16
    SET_PASSWORD_FAILED = 17
    FIRMWARE_CURRENT = 18
    FIRMWARE_UPDATE_FAILED = 19
    IDENTIFY_FAILED = 20
    NOT_IMPLEMENTED = 21
    SMART_THRESHOLDS_FAILED = 22
    SMART_DATA_FAILED = 23
    NOT_A_MORVU_DRIVE = 45
    FIRMWARE_PREPRODUCTION = 66
    FIRMWARE_UNSUPPORTED = 67
    CONTACT_SUPPORT = 68
    FIRMWARE_NEEDS_OTHER_TOOL = 69
    NO_DRIVES_FOUND = 72
    INVALID_ARGUMENTS = 73
    RUNNING = 74
    RAID_MEMBER = 77
    CANCELED_BY_USER = 81
    READ_ERROR = 82
    NO_PARTITION_LETTER = 83
    SMART_ENABLE_FAILED = 84
    SMART_DISABLE_FAILED = 85
    STANDBY_FAILED = 86
    INVALID_DRIVE_INDEX = 87
    NO_FORMATTED_PARTITION = 88
    RAID_VOLUME = 97
    CONTROLLER_IDE_MODE = 98
    CONTACT_REPRESENTATIVE = 103
    INVALID_MODEL = 104
    INVALID_SERIAL = 105
    INVALID_FIRMWARE = 106
    SMART_ATTRIBUTE_FAILING = 107
    SET_FEATURE_FAILED = 108
    READ_NATIVE_MAX_FAILED = 109
    SET_NATIVE_MAX_FAILED = 110
    STANDBY_IMMEDIATE_FAILED = 111
    SAVED_SMART_DATA_NOT_READ = 112
    ENDURANCE_GENERATION_UNSUPPORTED = 113
    ENDURANCE_FIRMWARE_TOO_OLD = 114
    INVALID_DRIVE_SERIAL = 115
    SMART_WRITE_LOG_FAILED = 116
    SMART_READ_LOG_FAILED = 117
    NOT_SUPPORTED_BY_DRIVE = 118
    READ_LOG_EXT_FAILED = 119
    SMART_EXECUTE_OFFLINE_FAILED = 120
    ENDURANCE_FILE_NOT_SAVED = 121
    FILE_NOT_WRITTEN = 122
    NO_MORVU_DRIVES = 123
    WRITE_CACHE_UNSUPPORTED = 125
    INVALID_DRIVE_LETTER = 126
    CHECK_POWER_MODE_FAILED = 127
    PARTITION_CHECK_FAILED = 128
    READ_OR_WRITE_FAILED = 129
    ATA_COMMAND_FAILED = 130
    SCSI_COMMAND_FAILED = 131
    RAID_MEMBER_COMMAND_FAILED = 132
    CLOSE_FAILED = 135
    FIRMWARE_SECURITY_ENABLED = 136
    COMMUNICATION_ERROR = 137
    LOG_PAGES_NOT_READ = 138
    HEALTH_CHECK_FAILED = 139
    COMMAND_PENDING = 140
    BUFFER_TOO_SMALL = 141
    FAILURE_IN_LOG = 147
    INVALID_SKU = 148
    ERASE_SECURITY_ENABLED = 149
    SECURITY_FROZEN_NO_CYCLE = 150
    SECURITY_ENABLED = 151
    STORAGE_SPACE_MEMBER = 152
    ERASE_BARRED_BY_SYSTEM = 155
    INVALID_PHY_SPEED = 157
    INVALID_ERROR_RECOVERY = 158
    INVALID_POWER_MODE = 159
    INVALID_SCT_FEATURE = 161
    INVALID_TEMPERATURE_INTERVAL = 162
    INVALID_WRITE_CACHE_STATE = 163
    INVALID_PLI_INTERVAL = 164
    INVALID_SELF_TEST = 168
    SELF_TEST_FAILED = 169
    LBA_OUT_OF_RANGE = 171
    COUNT_OUT_OF_RANGE = 172
    LIFE_BELOW_REQUESTED = 174
    NOT_INITIALIZED = 178
    ERASE_STANDBY_FAILED = 179
    DRIVE_HELD = 180
    INVALID_PHY_CONFIG = 183
    THREAD_NOT_STARTED = 185
    DRIVE_DEGRADED = 187
    DEVICE_FAULT = 188
    NVME_COMMAND_FAILED = 190
    DRIVE_NOT_RECOVERED = 194
    WRITE_LOG_EXT_FAILED = 195
    INVALID_CUSTOM_PHY = 197
    INVALID_DEVICE_ID = 199
    NOT_READ = 200
    INVALID_FEATURE_ID = 201
    INVALID_LOG_ID = 202
    INVALID_DRIVE_PATH = 203
    NO_WEAR_MEASURED = 205
    SECURE_ERASE_ALERT = 238
    NO_MESSAGE = 243
    UNKNOWN_SUBJECT = 244
    NO_DEVICE_SELECTED = 245
    COMMAND_NOT_SUPPORTED = 246
    OPERATION_RESERVED = 251
    DISABLE_LOGICAL = 252
    UNEXPECTED_NLOG = 254
    RAID_MEMBER_REFUSED = 255
    VENDOR_WRITE_FAILED = 260
    VENDOR_READ_FAILED = 261
    VENDOR_COMMAND_FAILED = 262
    WORKLOAD_INDICATORS_RESET = 269
    UNKNOWN_METHOD = 270
    SEVERAL_METHODS = 271
    UNKNOWN_PROPERTY = 272
    NO_SUPPORTED_DEVICES = 273
    SPARE_BELOW_THRESHOLD = 278
    TEMPERATURE_CRITICAL = 279
    RELIABILITY_DEGRADED = 280
    MEDIA_READ_ONLY = 281
    BACKUP_DEVICE_FAILED = 282
    ERASE_SECURITY_UNSUPPORTED = 284
    OPAL_ACTIVE_OR_UNKNOWN = 285
    ATA_DRIVER_UNREACHABLE = 286
    SCSI_DRIVER_UNREACHABLE = 287
    NVME_DRIVER_MISSING = 288
    CONFIGURATION_SECURITY_ENABLED = 289
    CONFIGURATION_FAILED = 290
    SANITIZE_COMMAND_UNSUPPORTED = 291
    SANITIZE_REASON_NOT_REPORTED = 292
    SANITIZE_UNSUCCESSFUL = 293
    SANITIZE_FROZEN = 294
    SANITIZE_FAILED = 295
    SANITIZE_UNSUPPORTED = 296
    SANITIZE_TIMED_OUT = 297
    SANITIZE_BARRED_BY_SYSTEM = 298
    DATA_SET_MANAGEMENT_FAILED = 299
    NOT_ASSERTED = 300
    NO_FIRMWARE = 301
    SELF_TEST_UNSUPPORTED = 302


TEXTS: Dict[int, str] = {
    0: "Completed successfully.",
    1: "Ready to run.",
    2: "Canceled.",
    3: "The tool cannot communicate with the selected Morvu SSD. Consider changing to another storage driver compatible with your system and try the tool again.",
    4: "Error: Could not communicate with drive.",
    5: "Feature has not been run.",
    6: "Error: The max LBA for this drive was read as zero.",
    7: "Error: Scan failed calculating free space of partition. Reboot and try again.",
    8: "The Morvu SSD does not contain enough free space to run this feature. Free up space by deleting files and try again.",
    9: "Error: Scan failed opening a file necessary for the feature. Reboot and try again.",
    10: "Error: Failed reading a file necessary for the feature. Reboot and try again.",
    11: "Error: Data mismatch detected.",
    12: "Error: The selected Morvu SSD is in the Security Frozen state. Secure Erase cannot run until the Security Freeze Lock is cleared.  To remove the lock, power-cycle the SSD while the operating system is running.  This can be done by unplugging and plugging in the SSD.",
    13: "Selected Drive contains a partition. Remove all partitions to proceed.",
    14: "The selected Morvu SSD has no partition.  This feature requires a partition to run.",
    15: "Error: Secure Erase Unit command failed. Reboot and try again. If error persists, consider using a DOS-based tool for Secure Erase.",
    16: "Error:  Secure Erase Prepare command failed. Reboot your system and try again. If error persists, consider using a DOS-based tool for Secure Erase.",
    17: "Error: Security Set Password command failed. Reboot your system and try again. If error persists, consider using a DOS-based tool for Secure Erase.",
    18: "The selected Morvu SSD contains current firmware as of this tool release.",
    19: "Error: Firmware update failed.",
    20: "Error: Identify device command failed.",
    21: "Error: This functionality has not been implemented.",
    22: "Error: SMART read thresholds command failed.",
    23: "Error: SMART read data command failed.",
    24: "The Morvu SSD Optimizer cannot run due to the presence of Volume Shadow Copy Service data. The likely cause is a backup in progress. Try again when the backup is finished.",
    25: "Error: The Morvu SSD Optimizer encountered an error (25). Reboot and try again.",
    26: "Error: The Morvu SSD Optimizer encountered an error (26). Reboot and try again.",
    27: "Error: The Morvu SSD Optimizer encountered an error (27). Reboot and try again.",
    28: "Error: The Morvu SSD Optimizer encountered an error (28). Reboot and try again.",
    29: "Error: The Morvu SSD Optimizer encountered an error (29). Reboot and try again.",
    30: "Error: The Morvu SSD Optimizer encountered an error (30). Reboot and try again.",
    31: "Error: The Morvu SSD Optimizer encountered an error (31). Reboot and try again.",
    32: "Error: The Morvu SSD Optimizer encountered an error (32). Reboot and try again.",
    33: "Error: The Morvu SSD Optimizer encountered an error (33). Reboot and try again.",
    34: "Error: The Morvu SSD Optimizer encountered an error (34). Reboot and try again.",
    35: "Error: The Morvu SSD Optimizer encountered an error (35). Reboot and try again.",
    36: "Error: The Morvu SSD Optimizer encountered an error (36). Reboot and try again.",
    37: "Error: The Morvu SSD Optimizer encountered an error (37). Reboot and try again.",
    38: "Error: The Morvu SSD Optimizer encountered an error (38). Reboot and try again.",
    39: "Error: The Morvu SSD Optimizer encountered an error (39). Reboot and try again.",
    40: "Error: The Morvu SSD Optimizer encountered an error (40). Reboot and try again.",
    41: "Error: RAID array detected. If RAID array not present, reboot and try again.",
    42: "Error: The Morvu SSD Optimizer cannot determine if the selected drive is encrypted or is a RAID volume.",
    43: "Error: The Morvu SSD Optimizer encountered an error (43). Reboot and try again.",
    44: "Error: The Morvu SSD Optimizer encountered an error (44). Reboot and try again.",
    45: "Error: Drive is not an Morvu SSD.",
    46: "Feature is not optimized.",
    47: "Feature is optimized.",
    48: "Error: Failed to check superfetch service.",
    49: "Error: Failed to check superfetch registry settings.",
    50: "Error: Failed to check readyboost service.",
    51: "Service not found.",
    52: "Error: Failed to connect to task scheduler (52).",
    53: "Error: Failed to connect to task scheduler (53).",
    54: "Error: Failed to connect to task scheduler (54).",
    55: "Error: Failed to connect to task scheduler (55).",
    56: "Error: Failed to connect to task scheduler (56).",
    57: "Error: Failed to connect to task scheduler (57).",
    58: "Error: Failed to connect to task scheduler (58).",
    59: "Error: Failed to connect to task scheduler (59).",
    60: "Error: Defrag not found.",
    61: "Error: Failed to connect to task scheduler (61).",
    62: "Error: Failed to connect to task scheduler (62).",
    63: "Error: Failed to connect to task scheduler (63).",
    64: "Error: Failed to connect to task scheduler (64).",
    65: "Error: Failed to disable defrag.",
    66: "Your Morvu SSD has pre-production firmware. Please contact Morvu Customer Support for further assistance at the following website: https://support.morvu.example/ssd",
    67: "Your Morvu SSD has unsupported firmware. Please contact Morvu Customer Support for further assistance at the following website: https://support.morvu.example/ssd",
    68: "Please contact Morvu Customer Support for further assistance at the following website: https://support.morvu.example/ssd",
    69: "The firmware update process cannot be completed in Windows for this firmware. Please use the Morvu SSD Firmware Update Tool in DOS.",
    70: "Error: Failed to check DIPM registry setting.",
    71: "Current storage driver does not support DIPM settings. Consider changing to another storage driver compatible with your system.",
    72: "Error: No drives were found. Ensure the tool or command prompt is being run as administrator.",
    73: "Error: Invalid arguments provided.",
    74: "Running...",
    75: "KDT RAID volume found containing all Morvu SSDs.",
    76: "No KDT RAID volume found containing all Morvu SSDs.",
    77: "Error: This feature cannot run on a RAID member.",
    78: "This drive does not support Trim.",
    79: "The selected partition does not have an NTFS file system.  This feature runs on partitions formatted as NTFS only.",
    80: "The Volume Shadow Copy Service is disabled.  The Morvu SSD Optimizer can only run when the Volume Shadow Copy Service is enabled, as it is used to protect data during the Morvu SSD Optimizer process.",
    81: "Canceled.",
    82: "Error: An error was detected reading data from the selected Morvu SSD.",
    83: "The selected Morvu SSD has no partition letter. This feature requires a partition letter to run.",
    84: "Error: Failed to enable SMART.",
    85: "Error: Failed to disable SMART.",
    86: "Error: ATA Stand By Immediate command failed.",
    87: "Error: Given drive index is invalid. Drive could not be found.",
    88: "The selected Morvu SSD does not have a formatted partition.  This feature requires a formatted partition to run.",
    89: "The tool cannot set the state of defrag, but the operating system may do so automatically for SSDs.",
    90: "Error: Failed to connect to WMI.",
    91: "Error: Failed to run query using WMI.",
    92: "The system is a desktop and does not support this feature.",
    93: "The selected drive is part of a dynamic partition. This feature is not supported on a dynamic partition.",
    94: "Error: Failed to retrieve information about the system.",
    95: "Feature is ready to be run.",
    96: "Morvu SSD Optimizer cannot run due to the presence of Volume Shadow Copy Service data. This is either due to a backup in progress or Shadow Copies have been enabled. If due to in-progress backup, try again when the backup is finished. If due to Shadow Copies being enabled, you cannot run the Morvu SSD Optimizer until Shadow Copies is disabled.",
    97: "This feature cannot run on a RAID volume. Select a specific RAID member to run this feature.",
    98: "Your system is in IDE Mode making it incompatible with Windows-based firmware updates. Please use the Morvu SSD Firmware Update Tool in DOS to complete the firmware update.",
    99: "Error: The Morvu SSD Optimizer encountered an error (99). Reboot and try again.",
    100: "Error: The Morvu SSD Optimizer encountered an error (100). Reboot and try again.",
    101: "Error: The Morvu SSD Optimizer encountered an error (101). Reboot and try again.",
    102: "Error: The Morvu SSD Optimizer encountered an error (102). Reboot and try again.",
    103: "Please contact your Morvu representative about firmware update for this drive.",
    104: "Error: Invalid model number.",
    105: "Error: Invalid serial number.",
    106: "Error: Invalid firmware version.",
    107: "Error: SMART attribute is failing.",
    108: "Error: Set Feature command failed.",
    109: "Error: ATA read native max command failed.",
    110: "Error: ATA Set native max command failed.",
    111: "Error: ATA standby immediate command failed.",
    112: "Error: Failed to read the saved SMART data. Did you reset the SMART attributes?",
    113: "Error: Selected SSD Generation does not support Endurance Analyzer.",
    114: "Error: Failed to start Endurance Analyzer. Invalid SSD Generation. Morvu Tarnwell SSD must have firmware version 02M0 or newer.",
    115: "Error: Given drive serial is invalid. Drive could not be found.",
    116: "Error: Write SMART Log command failed.",
    117: "Error: Read SMART Log command failed.",
    118: "Error: The selected drive does not support this feature.",
    119: "Error: Read Log Extended command failed.",
    120: "Error: Failed to issue SMART execute offline immediate command.",
    121: "Error: Failed to save SMART attributes file for Endurance Analyzer.",
    122: "Error: Failed to write file.",
    123: "No Morvu drives were found.",
    124: "Error: Drive does not support DIPM.",
    125: "Error: Drive does not support Write Cache.",
    126: "Error: Given drive letter is invalid. Drive could not be found.",
    127: "Error: ATA Check Power Mode command failed.",
    128: "Error: Unable to check if partition exists on the selected drive.",
    129: "Error: Failed ReadFile or WriteFile command.",
    130: "Error: ATA command failed.",
    131: "Error: SCSI command failed.",
    132: "Error: Failed sending an ATA command to the selected RAID member.",
    133: "Error: Write commands not supported with this driver.",
    134: "Error: 48-bit ATA commands are not supported with this driver.",
    135: "Error: Failed to close the connection to the drive.",
    136: "The firmware cannot be updated on the selected drive because ATA security is enabled. Consider turning off ATA security before updating the firmware with the tool.",
    137: "Error: Unable to communicate with the selected drive.",
    138: "Error: Failed to read all log pages from the selected drive.",
    139: "Error: The selected drive failed the health check.",
    140: "The asynchronous command is waiting for completion.",
    141: "Error: The supplied buffer is not large enough for this command.",
    142: "Error: The Morvu SSD Optimizer encountered an error (142). Reboot and try again.",
    143: "The Morvu SSD Optimizer can only run on a RAID0 array using an Morvu KDT driver version 11.0 or later.",
    144: "The Morvu SSD Optimizer cannot run on a RAID array using an Morvu KDT driver version earlier than 11.0. Consider upgrading to Morvu KDT 11.0 or newer to utilize the SSD Optimizer with a RAID0 array.",
    145: "Unable to retrieve driver information for the RAID array. Ensure most current driver installed or reinstall current storage driver.",
    146: "The Morvu SSD Optimizer cannot run on the selected RAID array because it is degraded, rebuilding, or in a failed state.",
    147: "Error: Failure detected in log data.",
    148: "Error: Invalid drive SKU.",
    149: "Secure Erase cannot be run on the selected drive because ATA security is enabled. Consider turning off ATA security before erasing the selected drive with the tool.",
    150: "Error: The selected Morvu SSD is in the Security Frozen state. Secure Erase cannot run until the Security Freeze Lock is cleared. Unfortunately, this system does not support the ability to remove the Security Freeze Lock with a power cycle.",
    151: "This feature cannot be run on the selected drive because ATA security is enabled. Consider turning off ATA security before using this feature.",
    152: "The selected Morvu SSD is part of a Storage Space. The SSD must be removed from the Storage Space to use this feature.",
    153: "The superfetch service was not found on the system.",
    154: "The Morvu SSD Optimizer cannot run on the selected RAID array.  One or more of the drives does not support Trim.",
    155: "Secure Erase cannot be run on the selected drive because it is not a supported feature under Windows Server 2012, Windows 8, or newer.",
    156: "The Morvu SSD Optimizer cannot run on a RAID array under Windows Server 2012, Windows 8, or newer.",
    157: "Error: Invalid PHY speed given. Supported values are: 1.5 3.0 and 6.0.",
    158: "Error: Invalid error recovery control option given. See -help for valid options.",
    159: "Error: Invalid power mode given. Valid modes are 0 1 and 2.",
    160: "Error: Invalid thermal throttle options give. Valid options are: 'enable' and 'disable'.",
    161: "Error: Invalid SCT feature control options given. see -help for proper usage.",
    162: "Error: Invalid time given for termperature logging interval. Value must be between 1 and 65535 (inclusive).",
    163: "Error: Invalid write cache state option given. Valid options are: 1 2 and 3.",
    164: "Error: Invalid value given for PLI test time interval. Valid values are: 0-6 (inclusive).",
    165: "Error: Invalid write cache reordering option given. Valid options are: 'enable' and 'disable'.",
    166: "Error: Invalid write same options given. See -help for proper usage.",
    167: "Error: Write same command failed.",
    168: "Error: Invalid self-test given. Valid tests are: 'short' 'extended' and 'conveyance'.",
    169: "Error: Drive self-test failed.",
    170: "Error: Invalid write same parameters. LBA and count must be numeric.",
    171: "Error: Given LBA is not in user LBA range.",
    172: "Error: Given count will exceed LBA range.",
    173: "Error: Invalid write same pattern given.",
    174: "Life of the drive is lower than requested.",
    175: "Error: The tool failed to rollback the system configuration setting.",
    176: "The system configuration setting is unable to be rolled back because it was not previously tuned by this tool.",
    177: "The system configuration setting has already been tuned.",
    178: "Error: The tool or specific feature has not been properly initialized.",
    179: "Error: Standby Immediate command failed. Reboot your system and try again. If error persists, consider using a DOS-based tool for Secure Erase.",
    180: "Error: Only one session is allowed at a time.",
    181: "Error: The provided session is invalid.",
    182: "Error: The provided session is already in use.",
    183: "Error: Invalid PHY Config value given. Supported values are: 0 1 and 2.",
    184: "Error: The given system configuration XML is in an invalid format.",
    185: "Error: Unable to duplicate administrator privileges for another thread. Reboot your system and try again.",
    186: "Error: Unable to pass administrator privileges to another thread. Reboot your system and try again.",
    187: "Error: The drive is in a degraded state.",
    188: "Error: The device fault is set on the selected drive. This functionality is not supported in the device fault state.",
    189: "Error from Windows NVMe Driver.",
    190: "Error: NVMe Command failed.",
    192: "Error: Invalid clock speed given. See -help for proper usage.",
    193: "Error: Invalid NAND speed option given. See -help for proper usage.",
    194: "Error: Failed to recover the drive.",
    195: "Error: Write Log Extended command failed.",
    196: "No assert found.",
    197: "Invalid custom PHY settings given.",
    198: "Error: Scan was not run. Please run Scan before using GetDeviceList or GetDeviceString.",
    199: "Error: Given device ID is invalid. Drive could not be found.",
    200: "the data could not be read, or there are none of the kind",
    201: "Error: Invalid feature ID given.",
    202: "Error: Invalid log ID given.",
    203: "Error: Given drive path is invalid. Drive could not be found.",
    204: "Error: Given CSMI information is invalid. Drive could not be found.",
    205: "Note: Workload did not induce any wear on the drive. Expected life calculation is invalid. Ensure that workloads run for an hour or more for valid calculations.",
    207: "Alert: NAND program errors.",
    208: "Alert: NAND uncorrectable program errors.",
    209: "Error: LBA mismatch.",
    210: "Error: SMART threshold exceeded.",
    211: "Alert: die taken offline.",
    212: "Alert: NAND read-retry failure.",
    213: "Alert: NAND read-retry failure.",
    214: "Alert: SATA transfer abort error.",
    215: "Error: failure during slow context load.",
    216: "Alert: NAND ECC fatal during defrag.",
    217: "Alert: NAND program fail.",
    218: "Alert: XOR recovery fail due to multiple ECC across same page in a band.",
    219: "Alert: XOR recovery rejected due to disabled band.",
    220: "Error: SMART self test hardware check.",
    221: "Error: command timeout.",
    222: "Error: command timeout.",
    223: "Error: failure during fast context load.",
    224: "Error: assert during PLI.",
    225: "Error: bad context.",
    226: "Error: PLI bad context.",
    227: "Error: XASSERT.",
    228: "Alert: DRAM uncorrectable detected.",
    229: "Error: drive went to disable logical mode during the load of fast context.",
    230: "Error: drive went to disable logical mode during the load of slow context.",
    231: "Error: drive is in disable logical due to context restore failure.",
    232: "Error: PLI capacitance is too low.",
    233: "Error: PLI capacitance is too high.",
    234: "Error: stuck band during erase.s",
    235: "Alert: SATA CRC error.",
    236: "Error: firmware is out of clean bands.",
    237: "Error: command timeout.",
    238: "Alert: Secure Erase.",
    240: "Error: failed to reset Adapter.",
    241: "Error: System rescan failed.",
    242: "Error: Invalid serial number. 8MB issue detected.",
    243: "no message waits for this job",
    244: "the request names no subject that the library has",
    245: "no drive was selected, or not the one that the method needs",
    246: "Selected drive does not support this command.",
    247: "Error: revert SP failed.",
    248: "Error: failed to start trusted peripheral session.",
    249: "Error: Trusted Peripheral is busy. A Session may already be open. Try power cycling the drive and rerunning the tool.",
    250: "Error: Entered an invalid PSID for the selected drive.",
    251: "this command set does not have the operation",
    252: "Error: Selected drive is in a disable logical state.",
    253: "Error: Opal is not activated on the selected drive. Unable to revert.",
    254: "Error: unexpected Nlog binary provided. Please provide a valid binary.",
    255: "Error: This feature cannot run on a RAID member.",
    260: "Error: Vendor write command failed.",
    261: "Error: Vendor read command failed.",
    262: "Error: Vendor command failed.",
    269: "Media Workload Indicators have reset values. Run 60+ minute workload prior to running the endurance analyzer.",
    270: "the method does not exist",
    271: "the request names more than one method",
    272: "the property does not exist",
    273: "No supported devices were found.",
    274: "Error: Failed to load the Morvu Tool library.",
    275: "eDrive is already supported.",
    276: "Error: enabling eDrive with this tool is not supported on the selected Morvu SSD. Please ensure the tool and the drive's firmware are up to date.",
    277: "Error: Opal is not in the ready state. Ensure Opal is not already in use.",
    278: "Error: Available space has fallen below the threshold.",
    279: "Error: Temperature has exceeded a critical threshold.",
    280: "Error: Device reliability has been degraded.",
    281: "Error: Media has been placed in read only mode.",
    282: "Error: Volatile memory backup device has failed.",
    284: "Secure Erase cannot be run on the selected drive because ATA security is not supported.",
    285: "The selected drive cannot run this feature. Opal is activated or is in an unknown state.",
    286: "Could not communicate with installed ATA driver. Try updating your ATA driver and try again.",
    287: "Could not communicate with installed SCSI driver. Try updating your SCSI driver and try again.",
    288: "The Morvu(R) NVMe* Driver is not installed. Please go to the Morvu SSD Family for PCIe* webpage to download the latest driver. Install it and try again.",
    289: "The configuration cannot be updated on the selected drive because ATA security is enabled. Consider turning off ATA security before changing the configuration with the tool.",
    290: "Error: Configuration update failed.",
    291: "Error: Selected Sanitize command is unsupported.",
    292: "Error: Sanitize failed with a response of Reason Not Reported.",
    293: "Error: Sanitize was unsuccessful.",
    294: "Error: The selected Morvu SSD is in the Sanitize Frozen state. Sanitize cannot run until the Sanitize Freeze is cleared.  To remove the freeze, power-cycle the SSD while the operating system is running.  This can be done by unplugging and plugging in the SSD.",
    295: "Error: Sanitize failed for an unknown reason.",
    296: "Error: Sanitize command is unsupported.",
    297: "Error: Sanitize command timedout.",
    298: "Sanitize cannot be run on the selected drive because it is not a supported feature under Windows Server 2012 R2, Windows 8.1, or newer.",
    299: "Error: The Data Set Management command failed.",
    300: "Error: Drive is not asserted.",
    301: "Error: No firmware file provided or module found.",
    302: "Error: This drive does not support SMART Self-Test.",
}
