#include "SimShMem.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "SimCommon.h"
#include "SimRoot.h"
#include "sysLib/PThreadMutex.h"

namespace {
// Long enough for any holder of the lock (it only guards a few word writes), short
// enough that a wedged service does not hang a test script.
constexpr int I_BMS_LOCK_TIMEOUT_MS = 2000;
}  // namespace

MappedFile_CL::MappedFile_CL(const std::string& str_Path, size_t ui_Size) : ui_Size(ui_Size) {
  int i_Fd = open(str_Path.c_str(), O_RDWR | O_CLOEXEC);
  if (i_Fd < 0) {
    f_RuntimeError(f_Format("cannot open %s: %s", str_Path.c_str(), g_strerror(errno)));
  }
  struct stat o_St {};
  if (fstat(i_Fd, &o_St) != 0 || o_St.st_size < static_cast<off_t>(ui_Size)) {
    close(i_Fd);
    f_RuntimeError(f_Format("%s is shorter than %zu bytes", str_Path.c_str(), ui_Size));
  }
  void* z_v_Map = mmap(nullptr, ui_Size, PROT_READ | PROT_WRITE, MAP_SHARED, i_Fd, 0);
  int i_Err = errno;
  close(i_Fd);
  if (z_v_Map == MAP_FAILED) {
    f_RuntimeError(f_Format("cannot map %s: %s", str_Path.c_str(), g_strerror(i_Err)));
  }
  this->z_v_Map = z_v_Map;
}

MappedFile_CL::~MappedFile_CL() {
  if (z_v_Map != nullptr) munmap(z_v_Map, ui_Size);
}

SimBms_CL::SimBms_CL(const SimRoot_CL& o_Root)
    : o_Map(o_Root.f_Path(SimPath::BMS_SHMEM), UI_BMS_SHMEM_SIZE) {}

void SimBms_CL::f_SetInput(int i_Line, bool b_Level) {
  BmsShMem_ST* z_o_Seg = f_Seg();
  uint32_t ui_Bit = 1U << i_Line;
  // A segment without the marker is a fresh file: nobody else uses it yet, and its mutex
  // bytes are not a mutex until the service initialises them.
  if (!f_HasMutex()) {
    z_o_Seg->ui_Inputs = b_Level ? (z_o_Seg->ui_Inputs | ui_Bit) : (z_o_Seg->ui_Inputs & ~ui_Bit);
    return;
  }
  PThreadMutex_CL o_Mutex(&z_o_Seg->o_Mutex);
  if (o_Mutex.f_Lock(I_BMS_LOCK_TIMEOUT_MS) != 0) {
    f_RuntimeError(f_Format("cannot lock the BMS segment: %s", g_strerror(errno)));
  }
  z_o_Seg->ui_Inputs = b_Level ? (z_o_Seg->ui_Inputs | ui_Bit) : (z_o_Seg->ui_Inputs & ~ui_Bit);
  o_Mutex.f_Unlock();
}

ErrorShMemData_ST f_ReadErrorShMem(const SimRoot_CL& o_Root) {
  MappedFile_CL o_Map(o_Root.f_Path(SimPath::ERROR_SHMEM), UI_ERROR_SHMEM_SIZE);
  ErrorShMemData_ST o_Data;
  std::memcpy(&o_Data, o_Map.f_Data(), sizeof(o_Data));
  return o_Data;
}

void f_WriteSmod(const SimRoot_CL& o_Root, uint8_t uc_Smod) {
  MappedFile_CL o_Map(o_Root.f_Path(SimPath::ERROR_SHMEM), UI_ERROR_SHMEM_SIZE);
  static_cast<ErrorShMemData_ST*>(o_Map.f_Data())->uc_Smod = uc_Smod;
}

const BmsLine_ST A_O_BMS_LINES[] = {
    {false, I_BMS_IN_ACK, "acknowledge"},
    {true, I_BMS_OUT_READY, "ready"},
    {true, I_BMS_OUT_NO_ERROR, "no active error"},
    {true, I_BMS_OUT_BATT_USABLE, "battery usable"},
    {true, I_BMS_OUT_BATT_OFF, "battery off"},
    {true, I_BMS_OUT_MAINTENANCE_DUE, "maintenance due"},
};
const size_t UI_BMS_LINES = sizeof(A_O_BMS_LINES) / sizeof(A_O_BMS_LINES[0]);

const char* f_BmsLineName(bool b_Output, int i_Line) {
  for (const BmsLine_ST& o_L : A_O_BMS_LINES) {
    if (o_L.b_Output == b_Output && o_L.i_Line == i_Line) return o_L.z_c_Name;
  }
  return "";
}

std::string f_BmsKnownLines() {
  std::string str_In, str_Out;
  for (const BmsLine_ST& o_L : A_O_BMS_LINES) {
    std::string& str_List = o_L.b_Output ? str_Out : str_In;
    if (!str_List.empty()) str_List += ", ";
    str_List += f_Format("%d %s", o_L.i_Line, o_L.z_c_Name);
  }
  return "input " + str_In + ";\noutputs " + str_Out + ".";
}

std::string f_BmsBitList(uint32_t ui_Word, bool b_Output) {
  std::string str_List;
  for (int i = 0; i < I_BMS_LINE_COUNT; ++i) {
    if ((ui_Word & (1U << i)) == 0) continue;
    if (!str_List.empty()) str_List += ", ";
    const char* z_c_Name = f_BmsLineName(b_Output, i);
    str_List += z_c_Name[0] != '\0' ? f_Format("%d (%s)", i, z_c_Name) : f_Format("%d", i);
  }
  return str_List.empty() ? "none" : str_List;
}
