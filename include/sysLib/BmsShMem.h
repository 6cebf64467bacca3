#pragma once
// Layout of the BMS digital I/O segment "/BmsShMem" shared with the I/O board process.
// Offsets are fixed and identical on every build (32-bit target and 64-bit PC).
#include <cstddef>
#include <cstdint>
#include <pthread.h>

constexpr uint32_t UI_BMS_INIT_MARKER = 0x424D5331;  // "BMS1": the mutex is set up
constexpr size_t UI_BMS_SHMEM_SIZE = 64;

struct BmsShMem_ST {
  uint32_t ui_Inputs;        // @0  bit n = input line n
  uint32_t ui_Outputs;       // @4  bit n = output line n
  uint32_t ui_OutputUpdate;  // @8  set to 1 after the outputs changed
  uint32_t ui_InitMarker;    // @12 UI_BMS_INIT_MARKER once the mutex is initialised
  pthread_mutex_t o_Mutex;   // @16 process-shared robust mutex
};

static_assert(offsetof(BmsShMem_ST, ui_Inputs) == 0, "BMS inputs at 0");
static_assert(offsetof(BmsShMem_ST, ui_Outputs) == 4, "BMS outputs at 4");
static_assert(offsetof(BmsShMem_ST, ui_OutputUpdate) == 8, "BMS output update at 8");
static_assert(offsetof(BmsShMem_ST, ui_InitMarker) == 12, "BMS init marker at 12");
static_assert(offsetof(BmsShMem_ST, o_Mutex) == 16, "BMS mutex at 16");
static_assert(sizeof(BmsShMem_ST) <= UI_BMS_SHMEM_SIZE, "BMS segment is 64 bytes");
