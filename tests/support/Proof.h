#pragma once

#include <cstddef>
#include <cstdlib>

/// The tests run a short form of each long proof; with the environment variable NVXCORE_PROVE set they run it
/// whole.
namespace nvxcore::testing {

inline bool runsWholeProofs() { return std::getenv("NVXCORE_PROVE") != nullptr; }
inline size_t proofCount(size_t shortForm, size_t whole) { return runsWholeProofs() ? whole : shortForm; }
/// Of a full enumeration, the short form takes each `shortForm`-th case.
inline size_t proofStep(size_t shortForm) { return runsWholeProofs() ? 1 : shortForm; }

}  // namespace nvxcore::testing
