#pragma once
// The two shared-memory segments of the simulated tool, mapped from their files under the
// sandbox (/dev/shm/ErrorShMem and /dev/shm/BmsShMem) while the service may hold them too.
#include <cstddef>
#include <cstdint>
#include <string>

#include "SysSrvNames.h"
#include "sysLib/BmsShMem.h"
#include "sysLib/ErrorShMem.h"

class SimRoot_CL;

// A file mapped shared, read-write. The file must exist and hold at least ui_Size bytes:
// the simulator never grows a segment behind the service's back.
class MappedFile_CL {
 public:
  MappedFile_CL(const std::string& str_Path, size_t ui_Size);
  ~MappedFile_CL();
  MappedFile_CL(const MappedFile_CL&) = delete;
  MappedFile_CL& operator=(const MappedFile_CL&) = delete;
  void* f_Data() const { return z_v_Map; }

 private:
  void* z_v_Map = nullptr;
  size_t ui_Size = 0;
};

// The BMS digital I/O words.
class SimBms_CL {
 public:
  explicit SimBms_CL(const SimRoot_CL& o_Root);
  uint32_t f_Inputs() const { return f_Seg()->ui_Inputs; }
  uint32_t f_Outputs() const { return f_Seg()->ui_Outputs; }
  // True once the service has set up the segment's mutex.
  bool f_HasMutex() const { return f_Seg()->ui_InitMarker == UI_BMS_INIT_MARKER; }
  // Sets or clears input line i_Line, under the segment's mutex when it is set up.
  void f_SetInput(int i_Line, bool b_Level);

 private:
  BmsShMem_ST* f_Seg() const { return static_cast<BmsShMem_ST*>(o_Map.f_Data()); }
  MappedFile_CL o_Map;
};

// The error segment; a copy read at once (the service writes it word by word).
ErrorShMemData_ST f_ReadErrorShMem(const SimRoot_CL& o_Root);
void f_WriteSmod(const SimRoot_CL& o_Root, uint8_t uc_Smod);

// The BMS lines the service uses, with their names for listings.
struct BmsLine_ST {
  bool b_Output;
  int i_Line;
  const char* z_c_Name;
};
extern const BmsLine_ST A_O_BMS_LINES[];
extern const size_t UI_BMS_LINES;
// The name of a line the service uses; empty for other lines.
const char* f_BmsLineName(bool b_Output, int i_Line);
// "input 17 acknowledge;\noutputs 17 ready, ..." for help texts.
std::string f_BmsKnownLines();
// "17 (ready), 18 (no active error)" for the set bits of a word.
std::string f_BmsBitList(uint32_t ui_Word, bool b_Output);
