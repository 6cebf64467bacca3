// The shared segments are read by processes this build does not make (I/O board, controller,
// PC tools); the headers pin the offsets at compile time, these tests the files as mapped.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <string>

#include "ErrorHandler.h"
#include "TestSupport.h"
#include "sysLib/Bms.h"
#include "sysLib/BmsShMem.h"
#include "sysLib/Error.h"
#include "sysLib/ErrorShMem.h"

namespace {
uint32_t f_WordAt(const std::string& str_Raw, size_t ui_Offset) {
  uint32_t ui_Word = 0;
  if (str_Raw.size() >= ui_Offset + sizeof(ui_Word))
    std::memcpy(&ui_Word, str_Raw.data() + ui_Offset, sizeof(ui_Word));
  return ui_Word;
}

// What another process does: writes bytes at an offset of the segment file in place.
void f_PokeSegment(const TempRoot& o_Root, const char* z_c_File, size_t ui_Offset,
                   const void* z_v_Data, size_t ui_Len) {
  std::fstream o_File(o_Root.f_Path(z_c_File), std::ios::in | std::ios::out | std::ios::binary);
  o_File.seekp(static_cast<std::streamoff>(ui_Offset));
  EXPECT_TRUE(o_File.write(static_cast<const char*>(z_v_Data), ui_Len).flush()) << z_c_File;
}
}  // namespace

TEST(ShmLayout, BmsWordsReachOtherProcessesAtTheirOffsets) {
  TempRoot o_Root;
  Bms_CL o_Bms;
  EXPECT_EQ(o_Bms.f_Out(18, true), 0);
  EXPECT_EQ(o_Bms.f_Out(31, true), 0);
  EXPECT_EQ(o_Bms.f_Out(32, true), -1);
  // The I/O board process consumes the update flag; a fast pair sets it again at unlock.
  static_cast<BmsShMem_ST*>(o_Bms.f_GetShMem())->ui_OutputUpdate = 0;
  ASSERT_EQ(o_Bms.f_LockOutSignals(), 0);
  EXPECT_EQ(o_Bms.f_OutFast(29, true), 0);
  EXPECT_EQ(o_Bms.f_OutFast(18, false), 0);
  EXPECT_EQ(f_WordAt(o_Root.f_Read("/dev/shm/BmsShMem"), 8), 0u);
  ASSERT_EQ(o_Bms.f_UnlockOutSignals(), 0);
  std::string str_Raw = o_Root.f_Read("/dev/shm/BmsShMem");
  ASSERT_EQ(str_Raw.size(), 64u);
  EXPECT_EQ(f_WordAt(str_Raw, 4), (1u << 29) | (1u << 31));  // outputs
  EXPECT_EQ(f_WordAt(str_Raw, 8), 1u);                       // output update
  EXPECT_EQ(f_WordAt(str_Raw, 12), 0x424D5331u);             // init marker
  // A second user maps the same words and does not initialise the mutex again.
  EXPECT_TRUE(Bms_CL().f_GetOut(29));

  // The I/O board process sets input 17 (the external acknowledge) in word 0.
  const uint32_t ui_Inputs = 1u << 17;
  f_PokeSegment(o_Root, "/dev/shm/BmsShMem", 0, &ui_Inputs, sizeof(ui_Inputs));
  EXPECT_TRUE(o_Bms.f_In(17));
  EXPECT_FALSE(o_Bms.f_In(29));
}

TEST(ShmLayout, ErrorWordsReachOtherProcessesAtTheirOffsets) {
  Error_CL* z_o_Err = Error_CL::f_GetErrorObj();
  TempRoot o_Root;
  ASSERT_EQ(z_o_Err->f_SetRdyFlag(3), 0);
  ASSERT_EQ(z_o_Err->f_SetRdyFlag(6), 0);
  ASSERT_EQ(z_o_Err->f_ResetRdyFlag(6), 0);
  EXPECT_EQ(z_o_Err->f_SetRdyFlag(32), -1);
  EXPECT_TRUE(z_o_Err->f_IsRdyFlagSet(3));
  std::string str_Raw = o_Root.f_Read("/dev/shm/ErrorShMem");
  ASSERT_EQ(str_Raw.size(), 16u);
  EXPECT_EQ(f_WordAt(str_Raw, 8), 1u << 3);  // RdyIst

  // Another process asks to skip the temperature check with byte 12.
  ErrorShMem_CL o_Seg;
  ASSERT_TRUE(o_Seg.f_IsShMemRdy());
  EXPECT_EQ(o_Seg.f_IsSmod(), 0);
  const uint8_t uc_Smod = 1;
  f_PokeSegment(o_Root, "/dev/shm/ErrorShMem", 12, &uc_Smod, sizeof(uc_Smod));
  EXPECT_EQ(o_Seg.f_IsSmod(), 1);
}
