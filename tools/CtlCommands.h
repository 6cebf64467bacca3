#pragma once
// The subcommands of syssrvctl. Each gets argv from its own name on, returns the exit
// code, and throws CliFailure_CL for anything that ends it early.
#include <string>
#include <vector>

#include "CtlBus.h"
#include "CtlFormat.h"

int f_CmdStatus(int i_Argc, char** a_z_c_Argv);
int f_CmdErrors(int i_Argc, char** a_z_c_Argv);
int f_CmdReport(int i_Argc, char** a_z_c_Argv);
int f_CmdAck(int i_Argc, char** a_z_c_Argv);
int f_CmdClear(int i_Argc, char** a_z_c_Argv);
int f_CmdReady(int i_Argc, char** a_z_c_Argv);
int f_CmdBattery(int i_Argc, char** a_z_c_Argv);
int f_CmdMfu(int i_Argc, char** a_z_c_Argv);
int f_CmdBatch(int i_Argc, char** a_z_c_Argv);
int f_CmdIdCodeSource(int i_Argc, char** a_z_c_Argv);
int f_CmdToolEnable(int i_Argc, char** a_z_c_Argv);
int f_CmdConfigChanged(int i_Argc, char** a_z_c_Argv);
int f_CmdMonitor(int i_Argc, char** a_z_c_Argv);

// The active errors as the service lists them; with b_OrUnknown a refusal gives
// *z_b_Known false instead of a failure.
std::vector<ActiveError_ST> f_ActiveErrors(CtlBus_CL& o_Bus, bool b_OrUnknown = false,
                                           bool* z_b_Known = nullptr);
