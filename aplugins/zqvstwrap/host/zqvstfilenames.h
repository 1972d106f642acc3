// File names around a plug-in: the folder of a module or program, and the
// name a preset or bank is saved under.  Pure text work on '/'-separated
// paths; nothing touches the file system.  Any thread.
#pragma once

#include <string>
#include <string_view>

#include "base/types.h"

// The folder of `path` with its trailing '/', or empty when `path` names no
// folder ("zqgain.so").
std::u16string ZqVstFolderOf(std::u16string_view path);

// The name a save dialog's answer is written under: kept when its extension
// is `extension` (".fxp" or ".fxb", compared without regard to case),
// otherwise stripped of trailing dots and given `extension`: "a." gives
// "a.fxp", "b" gives "b.fxb", "c.txt" gives "c.txt.fxp".
std::u16string ZqVstPresetFileName(std::u16string_view chosen, std::u16string_view extension);
