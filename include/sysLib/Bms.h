#pragma once
// Digital I/O of the tool's BMS board through the shared segment "/BmsShMem".
#include "sysLib/BmsShMem.h"
#include "sysLib/ShMem.h"
#include "sysLib/SysExcpt.h"

class Bms_CL : public ShMem_CL {
 public:
  // Maps (creating when missing) the segment; a segment without the init marker gets its
  // mutex initialised and the marker set, keeping its input and output words.
  // Throws SysExcpt_CL* when the segment cannot be mapped.
  Bms_CL();
  ~Bms_CL() override;

  // Level of input line i_Line (0..31); false for other numbers.
  bool f_In(int i_Line);
  // Level of output line i_Line as last written.
  bool f_GetOut(int i_Line);
  // Locks, writes output i_Line, sets the output-update word, unlocks. 0 or -1.
  int f_Out(int i_Line, bool b_Value);
  // Writes output i_Line without locking: the caller holds f_LockOutSignals.
  int f_OutFast(int i_Line, bool b_Value);
  // Lock and unlock the outputs around a group of f_OutFast writes.
  int f_LockOutSignals();
  int f_UnlockOutSignals();

 private:
  BmsShMem_ST* f_Seg() const { return static_cast<BmsShMem_ST*>(z_v_ShMem); }
  bool b_OutLocked = false;  // this object holds the output lock (released on destruction)
};
