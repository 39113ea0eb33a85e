// Firmware of the NVMe drives.
#include "FirmwareTable.h"

namespace {

constexpr std::string_view kImages[] = {"8DV10180"};

constexpr FirmwareRow kRows[] = {
    {"MORVU SSDPED", "8DV10180", kImages},
};

}  // namespace

const FirmwareTable kFirmwareTable = {"datacenter", 20260415, 50'001, kRows};
