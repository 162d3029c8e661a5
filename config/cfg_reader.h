// Reader of "key=value" configuration files with comments and sections.
#pragma once

#include <cstdio>

inline constexpr int kCfgLineSize = 4096;  // longer lines are read in pieces

enum CfgResult : int {
  kCfgFound = 0,
  kCfgNoSection = 1,
  kCfgNoKey = 2,
};

// Finds key, ignoring letter case, and stores its value in out.
//
// section         where to look; null searches from the start of the file, up to
//                 the first section header
// format          scan format for one item, or "line" for the raw text, for which
//                 out must hold kCfgLineSize characters
// position_cache  null, or the file offset just behind the section header once
//                 it was found (0: not yet)
//
// Returns a CfgResult, or -n when the key stood on the n-th line read by this
// call but its value did not scan. The first of several equal keys wins. A last
// line without a line end is never seen.
int ReadCfg(FILE* file, const char* section, const char* key, void* out, const char* format,
            long* position_cache);
