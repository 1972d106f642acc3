// A description of a VST preset (.fxp) or bank (.fxb) file, read without the
// plug-in it belongs to.
#pragma once

#include <string>

// Reads the file at `path` and describes it in text lines, each ending in a
// newline:
//
//   Kind: FxBk (bank of programs)
//   File size: 1100 bytes
//   Byte size field: 1092
//   Format version: 1
//   Plug-in id: 'ZqDl' (0x5A71446C)
//   Plug-in version: 1000
//   Programs: 2
//   Program 0: "Init" (FxCk, 4 parameters)
//   ...
//
// A program file lists its parameter values, or its chunk size; a bank of
// programs names every program; a chunk bank gives its chunk size.  A bank of
// format version 2 or later also shows its current-program field.  A file
// that cannot be read, is not one of the four forms, or is damaged or cut
// short gives false and a one-line message ("PATH: ...").
bool ZqvstDescribePresetFile(const std::string& path, std::string* text, std::string* error);
