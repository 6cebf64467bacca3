#pragma once
// Layout of the error segment "/ErrorShMem" (16 bytes, native byte order): the current
// coded error and the two readiness words, read by every process of the controller.
#include <cstddef>
#include <cstdint>

constexpr size_t UI_ERROR_SHMEM_SIZE = 16;
constexpr const char* A_C_ERROR_SHMEM_NAME = "/ErrorShMem";

struct ErrorShMemData_ST {
  int32_t i_CurError;       // @0  coded error number (code * 8 + class), 0 = none
  uint32_t ui_RdySoll;      // @4  required readiness flags
  uint32_t ui_RdyIst;       // @8  actual readiness flags
  uint8_t uc_Smod;          // @12 1 = skip the temperature check
  uint8_t auc_Reserved[3];  // @13
};

static_assert(offsetof(ErrorShMemData_ST, i_CurError) == 0, "current error at 0");
static_assert(offsetof(ErrorShMemData_ST, ui_RdySoll) == 4, "RdySoll at 4");
static_assert(offsetof(ErrorShMemData_ST, ui_RdyIst) == 8, "RdyIst at 8");
static_assert(offsetof(ErrorShMemData_ST, uc_Smod) == 12, "Smod byte at 12");
static_assert(sizeof(ErrorShMemData_ST) == UI_ERROR_SHMEM_SIZE, "error segment is 16 bytes");
