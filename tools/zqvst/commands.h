// The commands of zqvst.  Each takes the arguments after its own name and
// answers the program's exit status.
#pragma once

int ZqvstInfoCommand(int argc, char** argv, int first);
int ZqvstRenderCommand(int argc, char** argv, int first);
int ZqvstPresetCommand(int argc, char** argv, int first);
int ZqvstScanCommand(int argc, char** argv, int first);
int ZqvstListCommand(int argc, char** argv, int first);
int ZqvstFoldersCommand(int argc, char** argv, int first);
int ZqvstEnableCommand(int argc, char** argv, int first);
int ZqvstDisableCommand(int argc, char** argv, int first);

extern const char* const kZqvstInfoHelp;
extern const char* const kZqvstRenderHelp;
extern const char* const kZqvstPresetHelp;
extern const char* const kZqvstScanHelp;
extern const char* const kZqvstListHelp;
extern const char* const kZqvstFoldersHelp;
extern const char* const kZqvstEnableHelp;
