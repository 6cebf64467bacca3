#pragma once
// One GPIO line through /sys/class/gpio/gpioN/value ("0" or "1").

class Gpio_CL {
 public:
  Gpio_CL(unsigned short us_Line, bool b_Output, bool b_ActiveLow);
  // 0 or 1; -1 when the line cannot be read.
  int f_Read();
  // 0 or -1.
  int f_Write(bool b_Value);

 private:
  unsigned short us_Line;
  bool b_Output;
  bool b_ActiveLow;
};
