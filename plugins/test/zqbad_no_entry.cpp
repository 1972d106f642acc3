// A shared object that is no VST module: it exports neither
// "VSTPluginMain" nor "main", only this function.
extern "C" __attribute__((visibility("default"))) int zqbad_no_entry_marker() { return 0x5A71; }
