// Catalog-driven round trips of the match-table families, one function per table and action.
#pragma once

#include <cstddef>

struct TableCase {
  const char *name;
  void (*run)();
};

extern const TableCase kEntryCases[];
extern const size_t kEntryCaseCount;
extern const TableCase kDefaultCases[];
extern const size_t kDefaultCaseCount;

// The action-profile families: every member action of every profile, every bound table.
extern const TableCase kMemberCases[];
extern const size_t kMemberCaseCount;
extern const TableCase kBoundCases[];
extern const size_t kBoundCaseCount;
