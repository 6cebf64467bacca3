#pragma once
// The checks the 250 ms tick runs.
#include <gio/gio.h>

struct SysObj;

// Maintenance due by date or by cycle count: error 3216 and output 31.
void f_CheckWartung();
// "UBIFS error" in the kernel log: error 3233, once per process life.
void f_CheckUbifsErrors();
// Board temperature over I2C: errors 3252 / 3268 with hysteresis. 0, or -1 when the
// sensor could not be read.
int f_CheckTemperature(SysObj* z_o_Obj);
// Reads the board sensor (address 0x49 on /dev/i2c-2): 0 with the temperature in °C, or
// -1 (logged) when the device cannot be opened, selected, written or read.
int f_ReadBoardTemperature(float* z_fl_Temp);
// °C from the sensor's two register bytes.
float f_ConvertTemperature(unsigned char uc_Msb, unsigned char uc_Lsb);
