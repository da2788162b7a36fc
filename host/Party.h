// Whose call it is, where workers are shared out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace VELT::host {

// An owner's account, or the network that a visitor's address belongs to; never 0.
using Party = std::uint64_t;

// In each pool calls wait in as many lines. A party's calls stand in one; few parties share it, and
// never an owner with a visitor.
constexpr std::size_t kLines = 16;
constexpr std::size_t LineOf(Party party) { return party % kLines; }

// Stands in for the party of a call that a worker is about to take from a line, if nobody is faster.
constexpr Party ClaimOf(std::size_t line) { return kLines + line; }
constexpr bool IsClaim(Party party) { return party < 2 * kLines; }

// Accounts that were made one after the other have different lines.
constexpr Party OwnerParty(unsigned int uid) {
  return Party{uid} / (kLines / 2) * kLines + uid % (kLines / 2) + 2 * kLines;
}

// `address` is of IPv4 or IPv6; any other text is a party too.
Party VisitorParty(const std::string& address);

}  // namespace VELT::host
