// Exception type thrown (by pointer) from the library's constructors.
#include "sysLib/SysExcpt.h"

#include <syslog.h>

SysExcpt_CL::SysExcpt_CL(int i_Code, const char* z_c_Text, bool b_Log)
    : i_Code(i_Code), str_Text(z_c_Text != nullptr ? z_c_Text : "") {
  if (b_Log) syslog(LOG_CRIT, "SysExcpt_CL %d: %s", this->i_Code, str_Text.c_str());
}

SysExcpt_CL::~SysExcpt_CL() = default;
