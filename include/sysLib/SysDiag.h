#pragma once
// The diagnostic store: one text file per parameter under /var/sysdiag (root-mapped).
// All functions return 0 on success and -1 on failure.

int f_SysDiagSetParam(const char* z_c_Key, const char* z_c_Value);
// Reads the value text (surrounding white space removed) into a_c_Buf.
int f_SysDiagGetParam(const char* z_c_Key, char* a_c_Buf, unsigned int ui_Size);
int f_SysDiagMakeSubDir(const char* z_c_Dir);

int f_SysDiagSetCycle(unsigned int ui_Cycle);
int f_SysDiagGetCycle(unsigned int* z_ui_Cycle);  // a missing "cycle" file is a failure
int f_SysDiagSetTorqueLoad(double d_Load);
int f_SysDiagGetTorqueLoad(double* z_d_Load);
int f_SysDiagSetLoadStartCycle(unsigned int ui_Cycle);
int f_SysDiagSetTemperature(float fl_Temperature);
// Busy mode: true while /var/sysdiag/srbmod holds "1".
int f_SysDiagGetSrbMod(bool* z_b_Busy);

// "battery/status" and "battery/power", as "%d".
int f_SysDiagSetBatteryStatus(int i_Status);
int f_SysDiagSetBatteryPower(int i_Power);
