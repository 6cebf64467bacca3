#pragma once
// The subcommands of syssrv-sim. Each takes its own argv (argv[0] is the subcommand name),
// returns the exit code, and throws CliFailure_CL for a one-line failure.

int f_CmdInit(int i_Argc, char** a_z_c_Argv);
int f_CmdBattery(int i_Argc, char** a_z_c_Argv);
int f_CmdSync(int i_Argc, char** a_z_c_Argv);
int f_CmdLt(int i_Argc, char** a_z_c_Argv);
int f_CmdTemp(int i_Argc, char** a_z_c_Argv);
int f_CmdTempLimit(int i_Argc, char** a_z_c_Argv);
int f_CmdBms(int i_Argc, char** a_z_c_Argv);
int f_CmdDmesg(int i_Argc, char** a_z_c_Argv);
int f_CmdCycle(int i_Argc, char** a_z_c_Argv);
int f_CmdBusy(int i_Argc, char** a_z_c_Argv);
int f_CmdSmod(int i_Argc, char** a_z_c_Argv);
int f_CmdHwRev(int i_Argc, char** a_z_c_Argv);
int f_CmdNameplate(int i_Argc, char** a_z_c_Argv);
int f_CmdShow(int i_Argc, char** a_z_c_Argv);
int f_CmdLog(int i_Argc, char** a_z_c_Argv);
int f_CmdUp(int i_Argc, char** a_z_c_Argv);
int f_CmdDown(int i_Argc, char** a_z_c_Argv);

// Temperature sensor register value for a temperature: 10-bit, 0.25 degC steps,
// left-aligned in a big-endian 16-bit word. Out of the sensor's range is a usage error.
unsigned int f_TempToRaw(double d_Celsius);
// What the service makes of a register value.
double f_RawToTemp(unsigned int ui_Raw);
