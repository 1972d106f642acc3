// The commands of zqvst.  Each takes the arguments after its own name and
// answers the program's exit status.
#pragma once

int ZqvstInfoCommand(int argc, char** argv, int first);
int ZqvstRenderCommand(int argc, char** argv, int first);
int ZqvstPresetCommand(int argc, char** argv, int first);

extern const char* const kZqvstInfoHelp;
extern const char* const kZqvstRenderHelp;
extern const char* const kZqvstPresetHelp;
