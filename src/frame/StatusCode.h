// Status codes: the one result type of the library, and their texts.
#pragma once

#include <cstdint>
#include <string>

#include "morvu/status_codes.h"

namespace Morvu {

// A code of morvu/status_codes.h; a negative value carries an operating-system error.
// A constant number is a code by itself, one that is computed has to say so.
class [[nodiscard]] StatusCode {
 public:
  consteval StatusCode(std::int32_t value) : value_(value) {}
  static constexpr StatusCode FromValue(std::int32_t value) {
    return StatusCode(value, Computed{});
  }
  // -errno, whichever sign the number has.
  static constexpr StatusCode FromSystemError(std::int32_t error) {
    return FromValue(error < 0 ? error : -error);
  }

  constexpr std::int32_t Value() const { return value_; }
  constexpr bool IsSystemError() const { return value_ < 0; }

  friend constexpr bool operator==(StatusCode, StatusCode) = default;
  friend constexpr bool operator==(StatusCode code, std::int32_t value) {
    return code.value_ == value;
  }
  friend auto& operator<<(auto& stream, StatusCode code) { return stream << code.value_; }

 private:
  struct Computed {};
  constexpr StatusCode(std::int32_t value, Computed) : value_(value) {}

  std::int32_t value_;
};

// The names of the codes, as the C header gives them: Status::Canceled and so on.
namespace Status {
inline constexpr StatusCode Completed = MORVU_STATUS_COMPLETED;
inline constexpr StatusCode ReadyToRun = MORVU_STATUS_READY_TO_RUN;
inline constexpr StatusCode Canceled = MORVU_STATUS_CANCELED;
inline constexpr StatusCode NoAtaDriver = MORVU_STATUS_NO_ATA_DRIVER;
inline constexpr StatusCode NoCommunication = MORVU_STATUS_NO_COMMUNICATION;
inline constexpr StatusCode NotRun = MORVU_STATUS_NOT_RUN;
inline constexpr StatusCode MaxLbaZero = MORVU_STATUS_MAX_LBA_ZERO;
inline constexpr StatusCode FreeSpaceUnknown = MORVU_STATUS_FREE_SPACE_UNKNOWN;
inline constexpr StatusCode NotEnoughFreeSpace = MORVU_STATUS_NOT_ENOUGH_FREE_SPACE;
inline constexpr StatusCode FileNotOpened = MORVU_STATUS_FILE_NOT_OPENED;
inline constexpr StatusCode FileNotRead = MORVU_STATUS_FILE_NOT_READ;
inline constexpr StatusCode DataMismatch = MORVU_STATUS_DATA_MISMATCH;
inline constexpr StatusCode SecurityFrozen = MORVU_STATUS_SECURITY_FROZEN;
inline constexpr StatusCode HasPartition = MORVU_STATUS_HAS_PARTITION;
inline constexpr StatusCode NoPartition = MORVU_STATUS_NO_PARTITION;
inline constexpr StatusCode EraseUnitFailed = MORVU_STATUS_ERASE_UNIT_FAILED;
inline constexpr StatusCode ErasePrepareFailed = MORVU_STATUS_ERASE_PREPARE_FAILED;
inline constexpr StatusCode SetPasswordFailed = MORVU_STATUS_SET_PASSWORD_FAILED;
inline constexpr StatusCode FirmwareCurrent = MORVU_STATUS_FIRMWARE_CURRENT;
inline constexpr StatusCode FirmwareUpdateFailed = MORVU_STATUS_FIRMWARE_UPDATE_FAILED;
inline constexpr StatusCode IdentifyFailed = MORVU_STATUS_IDENTIFY_FAILED;
inline constexpr StatusCode NotImplemented = MORVU_STATUS_NOT_IMPLEMENTED;
inline constexpr StatusCode SmartThresholdsFailed = MORVU_STATUS_SMART_THRESHOLDS_FAILED;
inline constexpr StatusCode SmartDataFailed = MORVU_STATUS_SMART_DATA_FAILED;
inline constexpr StatusCode NotAMorvuDrive = MORVU_STATUS_NOT_A_MORVU_DRIVE;
inline constexpr StatusCode FirmwarePreproduction = MORVU_STATUS_FIRMWARE_PREPRODUCTION;
inline constexpr StatusCode FirmwareUnsupported = MORVU_STATUS_FIRMWARE_UNSUPPORTED;
inline constexpr StatusCode ContactSupport = MORVU_STATUS_CONTACT_SUPPORT;
inline constexpr StatusCode FirmwareNeedsOtherTool = MORVU_STATUS_FIRMWARE_NEEDS_OTHER_TOOL;
inline constexpr StatusCode NoDrivesFound = MORVU_STATUS_NO_DRIVES_FOUND;
inline constexpr StatusCode InvalidArguments = MORVU_STATUS_INVALID_ARGUMENTS;
inline constexpr StatusCode Running = MORVU_STATUS_RUNNING;
inline constexpr StatusCode RaidMember = MORVU_STATUS_RAID_MEMBER;
inline constexpr StatusCode CanceledByUser = MORVU_STATUS_CANCELED_BY_USER;
inline constexpr StatusCode ReadError = MORVU_STATUS_READ_ERROR;
inline constexpr StatusCode NoPartitionLetter = MORVU_STATUS_NO_PARTITION_LETTER;
inline constexpr StatusCode SmartEnableFailed = MORVU_STATUS_SMART_ENABLE_FAILED;
inline constexpr StatusCode SmartDisableFailed = MORVU_STATUS_SMART_DISABLE_FAILED;
inline constexpr StatusCode StandbyFailed = MORVU_STATUS_STANDBY_FAILED;
inline constexpr StatusCode InvalidDriveIndex = MORVU_STATUS_INVALID_DRIVE_INDEX;
inline constexpr StatusCode NoFormattedPartition = MORVU_STATUS_NO_FORMATTED_PARTITION;
inline constexpr StatusCode RaidVolume = MORVU_STATUS_RAID_VOLUME;
inline constexpr StatusCode ControllerIdeMode = MORVU_STATUS_CONTROLLER_IDE_MODE;
inline constexpr StatusCode ContactRepresentative = MORVU_STATUS_CONTACT_REPRESENTATIVE;
inline constexpr StatusCode InvalidModel = MORVU_STATUS_INVALID_MODEL;
inline constexpr StatusCode InvalidSerial = MORVU_STATUS_INVALID_SERIAL;
inline constexpr StatusCode InvalidFirmware = MORVU_STATUS_INVALID_FIRMWARE;
inline constexpr StatusCode SmartAttributeFailing = MORVU_STATUS_SMART_ATTRIBUTE_FAILING;
inline constexpr StatusCode SetFeatureFailed = MORVU_STATUS_SET_FEATURE_FAILED;
inline constexpr StatusCode ReadNativeMaxFailed = MORVU_STATUS_READ_NATIVE_MAX_FAILED;
inline constexpr StatusCode SetNativeMaxFailed = MORVU_STATUS_SET_NATIVE_MAX_FAILED;
inline constexpr StatusCode StandbyImmediateFailed = MORVU_STATUS_STANDBY_IMMEDIATE_FAILED;
inline constexpr StatusCode SavedSmartDataNotRead = MORVU_STATUS_SAVED_SMART_DATA_NOT_READ;
inline constexpr StatusCode EnduranceGenerationUnsupported =
    MORVU_STATUS_ENDURANCE_GENERATION_UNSUPPORTED;
inline constexpr StatusCode EnduranceFirmwareTooOld = MORVU_STATUS_ENDURANCE_FIRMWARE_TOO_OLD;
inline constexpr StatusCode InvalidDriveSerial = MORVU_STATUS_INVALID_DRIVE_SERIAL;
inline constexpr StatusCode SmartWriteLogFailed = MORVU_STATUS_SMART_WRITE_LOG_FAILED;
inline constexpr StatusCode SmartReadLogFailed = MORVU_STATUS_SMART_READ_LOG_FAILED;
inline constexpr StatusCode NotSupportedByDrive = MORVU_STATUS_NOT_SUPPORTED_BY_DRIVE;
inline constexpr StatusCode ReadLogExtFailed = MORVU_STATUS_READ_LOG_EXT_FAILED;
inline constexpr StatusCode SmartExecuteOfflineFailed = MORVU_STATUS_SMART_EXECUTE_OFFLINE_FAILED;
inline constexpr StatusCode EnduranceFileNotSaved = MORVU_STATUS_ENDURANCE_FILE_NOT_SAVED;
inline constexpr StatusCode FileNotWritten = MORVU_STATUS_FILE_NOT_WRITTEN;
inline constexpr StatusCode NoMorvuDrives = MORVU_STATUS_NO_MORVU_DRIVES;
inline constexpr StatusCode WriteCacheUnsupported = MORVU_STATUS_WRITE_CACHE_UNSUPPORTED;
inline constexpr StatusCode InvalidDriveLetter = MORVU_STATUS_INVALID_DRIVE_LETTER;
inline constexpr StatusCode CheckPowerModeFailed = MORVU_STATUS_CHECK_POWER_MODE_FAILED;
inline constexpr StatusCode PartitionCheckFailed = MORVU_STATUS_PARTITION_CHECK_FAILED;
inline constexpr StatusCode ReadOrWriteFailed = MORVU_STATUS_READ_OR_WRITE_FAILED;
inline constexpr StatusCode AtaCommandFailed = MORVU_STATUS_ATA_COMMAND_FAILED;
inline constexpr StatusCode ScsiCommandFailed = MORVU_STATUS_SCSI_COMMAND_FAILED;
inline constexpr StatusCode RaidMemberCommandFailed = MORVU_STATUS_RAID_MEMBER_COMMAND_FAILED;
inline constexpr StatusCode CloseFailed = MORVU_STATUS_CLOSE_FAILED;
inline constexpr StatusCode FirmwareSecurityEnabled = MORVU_STATUS_FIRMWARE_SECURITY_ENABLED;
inline constexpr StatusCode CommunicationError = MORVU_STATUS_COMMUNICATION_ERROR;
inline constexpr StatusCode LogPagesNotRead = MORVU_STATUS_LOG_PAGES_NOT_READ;
inline constexpr StatusCode HealthCheckFailed = MORVU_STATUS_HEALTH_CHECK_FAILED;
inline constexpr StatusCode CommandPending = MORVU_STATUS_COMMAND_PENDING;
inline constexpr StatusCode BufferTooSmall = MORVU_STATUS_BUFFER_TOO_SMALL;
inline constexpr StatusCode FailureInLog = MORVU_STATUS_FAILURE_IN_LOG;
inline constexpr StatusCode InvalidSku = MORVU_STATUS_INVALID_SKU;
inline constexpr StatusCode EraseSecurityEnabled = MORVU_STATUS_ERASE_SECURITY_ENABLED;
inline constexpr StatusCode SecurityFrozenNoCycle = MORVU_STATUS_SECURITY_FROZEN_NO_CYCLE;
inline constexpr StatusCode SecurityEnabled = MORVU_STATUS_SECURITY_ENABLED;
inline constexpr StatusCode StorageSpaceMember = MORVU_STATUS_STORAGE_SPACE_MEMBER;
inline constexpr StatusCode EraseBarredBySystem = MORVU_STATUS_ERASE_BARRED_BY_SYSTEM;
inline constexpr StatusCode InvalidPhySpeed = MORVU_STATUS_INVALID_PHY_SPEED;
inline constexpr StatusCode InvalidErrorRecovery = MORVU_STATUS_INVALID_ERROR_RECOVERY;
inline constexpr StatusCode InvalidPowerMode = MORVU_STATUS_INVALID_POWER_MODE;
inline constexpr StatusCode InvalidSctFeature = MORVU_STATUS_INVALID_SCT_FEATURE;
inline constexpr StatusCode InvalidTemperatureInterval = MORVU_STATUS_INVALID_TEMPERATURE_INTERVAL;
inline constexpr StatusCode InvalidWriteCacheState = MORVU_STATUS_INVALID_WRITE_CACHE_STATE;
inline constexpr StatusCode InvalidPliInterval = MORVU_STATUS_INVALID_PLI_INTERVAL;
inline constexpr StatusCode InvalidSelfTest = MORVU_STATUS_INVALID_SELF_TEST;
inline constexpr StatusCode SelfTestFailed = MORVU_STATUS_SELF_TEST_FAILED;
inline constexpr StatusCode LbaOutOfRange = MORVU_STATUS_LBA_OUT_OF_RANGE;
inline constexpr StatusCode CountOutOfRange = MORVU_STATUS_COUNT_OUT_OF_RANGE;
inline constexpr StatusCode LifeBelowRequested = MORVU_STATUS_LIFE_BELOW_REQUESTED;
inline constexpr StatusCode NotInitialized = MORVU_STATUS_NOT_INITIALIZED;
inline constexpr StatusCode EraseStandbyFailed = MORVU_STATUS_ERASE_STANDBY_FAILED;
inline constexpr StatusCode InvalidPhyConfig = MORVU_STATUS_INVALID_PHY_CONFIG;
inline constexpr StatusCode ThreadNotStarted = MORVU_STATUS_THREAD_NOT_STARTED;
inline constexpr StatusCode DriveDegraded = MORVU_STATUS_DRIVE_DEGRADED;
inline constexpr StatusCode DeviceFault = MORVU_STATUS_DEVICE_FAULT;
inline constexpr StatusCode NvmeCommandFailed = MORVU_STATUS_NVME_COMMAND_FAILED;
inline constexpr StatusCode DriveNotRecovered = MORVU_STATUS_DRIVE_NOT_RECOVERED;
inline constexpr StatusCode WriteLogExtFailed = MORVU_STATUS_WRITE_LOG_EXT_FAILED;
inline constexpr StatusCode InvalidDeviceId = MORVU_STATUS_INVALID_DEVICE_ID;
inline constexpr StatusCode InvalidFeatureId = MORVU_STATUS_INVALID_FEATURE_ID;
inline constexpr StatusCode InvalidLogId = MORVU_STATUS_INVALID_LOG_ID;
inline constexpr StatusCode InvalidDrivePath = MORVU_STATUS_INVALID_DRIVE_PATH;
inline constexpr StatusCode NoWearMeasured = MORVU_STATUS_NO_WEAR_MEASURED;
inline constexpr StatusCode SecureEraseAlert = MORVU_STATUS_SECURE_ERASE_ALERT;
inline constexpr StatusCode NoMessage = MORVU_STATUS_NO_MESSAGE;
inline constexpr StatusCode UnknownSubject = MORVU_STATUS_UNKNOWN_SUBJECT;
inline constexpr StatusCode NoDeviceSelected = MORVU_STATUS_NO_DEVICE_SELECTED;
inline constexpr StatusCode CommandNotSupported = MORVU_STATUS_COMMAND_NOT_SUPPORTED;
inline constexpr StatusCode OperationReserved = MORVU_STATUS_OPERATION_RESERVED;
inline constexpr StatusCode DisableLogical = MORVU_STATUS_DISABLE_LOGICAL;
inline constexpr StatusCode UnexpectedNlog = MORVU_STATUS_UNEXPECTED_NLOG;
inline constexpr StatusCode RaidMemberRefused = MORVU_STATUS_RAID_MEMBER_REFUSED;
inline constexpr StatusCode VendorWriteFailed = MORVU_STATUS_VENDOR_WRITE_FAILED;
inline constexpr StatusCode VendorReadFailed = MORVU_STATUS_VENDOR_READ_FAILED;
inline constexpr StatusCode VendorCommandFailed = MORVU_STATUS_VENDOR_COMMAND_FAILED;
inline constexpr StatusCode WorkloadIndicatorsReset = MORVU_STATUS_WORKLOAD_INDICATORS_RESET;
inline constexpr StatusCode UnknownMethod = MORVU_STATUS_UNKNOWN_METHOD;
inline constexpr StatusCode SeveralMethods = MORVU_STATUS_SEVERAL_METHODS;
inline constexpr StatusCode UnknownProperty = MORVU_STATUS_UNKNOWN_PROPERTY;
inline constexpr StatusCode NoSupportedDevices = MORVU_STATUS_NO_SUPPORTED_DEVICES;
inline constexpr StatusCode SpareBelowThreshold = MORVU_STATUS_SPARE_BELOW_THRESHOLD;
inline constexpr StatusCode TemperatureCritical = MORVU_STATUS_TEMPERATURE_CRITICAL;
inline constexpr StatusCode ReliabilityDegraded = MORVU_STATUS_RELIABILITY_DEGRADED;
inline constexpr StatusCode MediaReadOnly = MORVU_STATUS_MEDIA_READ_ONLY;
inline constexpr StatusCode BackupDeviceFailed = MORVU_STATUS_BACKUP_DEVICE_FAILED;
inline constexpr StatusCode EraseSecurityUnsupported = MORVU_STATUS_ERASE_SECURITY_UNSUPPORTED;
inline constexpr StatusCode OpalActiveOrUnknown = MORVU_STATUS_OPAL_ACTIVE_OR_UNKNOWN;
inline constexpr StatusCode AtaDriverUnreachable = MORVU_STATUS_ATA_DRIVER_UNREACHABLE;
inline constexpr StatusCode ScsiDriverUnreachable = MORVU_STATUS_SCSI_DRIVER_UNREACHABLE;
inline constexpr StatusCode NvmeDriverMissing = MORVU_STATUS_NVME_DRIVER_MISSING;
inline constexpr StatusCode ConfigurationSecurityEnabled =
    MORVU_STATUS_CONFIGURATION_SECURITY_ENABLED;
inline constexpr StatusCode ConfigurationFailed = MORVU_STATUS_CONFIGURATION_FAILED;
inline constexpr StatusCode SanitizeCommandUnsupported = MORVU_STATUS_SANITIZE_COMMAND_UNSUPPORTED;
inline constexpr StatusCode SanitizeReasonNotReported = MORVU_STATUS_SANITIZE_REASON_NOT_REPORTED;
inline constexpr StatusCode SanitizeUnsuccessful = MORVU_STATUS_SANITIZE_UNSUCCESSFUL;
inline constexpr StatusCode SanitizeFrozen = MORVU_STATUS_SANITIZE_FROZEN;
inline constexpr StatusCode SanitizeFailed = MORVU_STATUS_SANITIZE_FAILED;
inline constexpr StatusCode SanitizeUnsupported = MORVU_STATUS_SANITIZE_UNSUPPORTED;
inline constexpr StatusCode SanitizeTimedOut = MORVU_STATUS_SANITIZE_TIMED_OUT;
inline constexpr StatusCode SanitizeBarredBySystem = MORVU_STATUS_SANITIZE_BARRED_BY_SYSTEM;
inline constexpr StatusCode DataSetManagementFailed = MORVU_STATUS_DATA_SET_MANAGEMENT_FAILED;
inline constexpr StatusCode NotAsserted = MORVU_STATUS_NOT_ASSERTED;
inline constexpr StatusCode NoFirmware = MORVU_STATUS_NO_FIRMWARE;
inline constexpr StatusCode SelfTestUnsupported = MORVU_STATUS_SELF_TEST_UNSUPPORTED;
}  // namespace Status

// The text of a code for a person. Every number has one.
std::string GetStatusText(StatusCode code);

}  // namespace Morvu
