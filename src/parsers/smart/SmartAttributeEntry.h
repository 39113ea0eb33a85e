// Where the values of an attribute stand in its 12 bytes, in the attribute sector of an
// ATA drive and in the list of an NVMe drive alike (SFF-8035i, revision 2).
#pragma once

#include "messaging/PageTable.h"

namespace Morvu::SmartEntry {

inline constexpr std::size_t kSize = 12;

inline constexpr PagePlace kId{0, 1};
inline constexpr PagePlace kFlags{1, 2};  // ATA alone
inline constexpr PagePlace kNormalized{3, 1};
inline constexpr PagePlace kWorst{4, 1};  // ATA alone
inline constexpr PagePlace kRaw{5, 6};
inline constexpr PagePlace kShortRaw{5, 4};

// Of the entry in the same place of the threshold sector.
inline constexpr std::size_t kThreshold = 1;

}  // namespace Morvu::SmartEntry
