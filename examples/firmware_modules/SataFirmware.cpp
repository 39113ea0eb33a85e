// Firmware of the SATA drives. Their older firmware takes the new one only by way of
// a bridge, so two images are sent.
#include "FirmwareTable.h"

namespace {

constexpr std::string_view kImages[] = {"D2010375", "D2010380"};

constexpr FirmwareRow kRows[] = {
    {"MORVU SSDSC2BB", "D2010380", kImages},
};

}  // namespace

const FirmwareTable kFirmwareTable = {"retail", 20260301, 150'000, kRows};
