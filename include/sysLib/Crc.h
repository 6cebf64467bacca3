#pragma once
// CRC-16/CCITT-FALSE: polynomial 0x1021, not reflected, no final xor, from the given seed.
unsigned short f_crcGet(unsigned short us_Seed, const char* z_c_Data, long l_Len);
