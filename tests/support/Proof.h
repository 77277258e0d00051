#pragma once

#include <cstddef>
#include <cstdlib>

/// The tests run a short form of each long proof; with the environment variable NVXCORE_PROVE set they run it
/// whole.
namespace nvxcore::testing {

inline bool runsWholeProofs() { return std::getenv("NVXCORE_PROVE") != nullptr; }
inline size_t proofCount(size_t shortForm, size_t whole) { return runsWholeProofs() ? whole : shortForm; }
/// The cases from `first` on that are this run's: all of them, or with NVXCORE_PROVE_PART=k/n the k-th (from
/// 1) of n parts.
struct ProofRange {
  size_t first;
  size_t count;
};
inline ProofRange proofRange(size_t total) {
  const char* part = std::getenv("NVXCORE_PROVE_PART");
  char* slash = nullptr;
  const size_t k = part ? std::strtoul(part, &slash, 10) : 1;
  const size_t n = slash && *slash == '/' ? std::strtoul(slash + 1, nullptr, 10) : 1;
  if (k < 1 || k > n) return {0, total};
  return {total / n * (k - 1), k == n ? total - total / n * (n - 1) : total / n};
}
/// Of a full enumeration, the short form takes each `shortForm`-th case.
inline size_t proofStep(size_t shortForm) { return runsWholeProofs() ? 1 : shortForm; }

}  // namespace nvxcore::testing
