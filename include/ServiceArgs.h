#pragma once
// The service's own command line: it takes no options, but answers --version and --help
// like every program on the system, without touching the bus or the tool.

// -1: no arguments, start the service; otherwise the exit status to end with (0 after
// --version or --help, 2 for anything else, with a message on stderr).
int f_ServiceArgs(int i_Argc, char** a_z_c_Argv);
