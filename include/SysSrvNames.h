/* The service's names shared by everything built here: the service, the simulated tool,
 * the command-line client, the plant feed and the client library (which is C, so this
 * header is plain C that also compiles as C++).
 *
 * Every line of the I/O board, readiness flag, own error number and bus name the code
 * uses is named here once. The integration tests keep their literal numbers on purpose:
 * they hold the wire contract, and a test that uses these constants cannot catch a wrong
 * one.
 */
#ifndef SYSSRV_NAMES_H
#define SYSSRV_NAMES_H

/* The service's place on the system bus. The client library's public header repeats these
 * texts so that it stays self-contained once installed; its build checks they are equal. */
#define SYSSRV_BUS_NAME "com.torvane.akku.SysService"
#define SYSSRV_OBJECT_PATH "/SysObj"
#define SYSSRV_INTERFACE "com.torvane.akku.SysInterface"

/* Lines of the BMS I/O board: bit n of the input or output word is line n. */
enum en_BmsLine {
  /* Inputs. */
  I_BMS_IN_ACK = 17, /* external acknowledge, acts on the rising edge */
  /* Outputs. */
  I_BMS_OUT_READY = 17,           /* the controller is ready */
  I_BMS_OUT_NO_ERROR = 18,        /* no active system error */
  I_BMS_OUT_BATT_USABLE = 29,     /* battery good, weak or not known yet */
  I_BMS_OUT_BATT_OFF = 30,        /* battery off or empty */
  I_BMS_OUT_MAINTENANCE_DUE = 31, /* maintenance due by date or cycle count */
  I_BMS_LINE_COUNT = 32
};

/* The readiness flags the service keeps itself; other processes own the rest. */
enum en_RdyFlag {
  I_RDY_FLAG_NO_SYS_ERROR = 3, /* no active system error */
  I_RDY_FLAG_BATTERY = 6       /* battery usable */
};

/* The coded error numbers (code x 8 + class) the service raises itself. */
enum en_SysError {
  I_SYSERR_NAMEPLATE_CRC = 3201,                /* code 400, class 1 */
  I_SYSERR_MAINTENANCE_DUE = 3216,              /* code 402, class 0 */
  I_SYSERR_BATTERY_LOW = 3228,                  /* code 403, class 4 */
  I_SYSERR_FLASH = 3233,                        /* code 404, class 1: UBIFS error in the kernel log */
  I_SYSERR_OVER_TEMPERATURE = 3252,             /* code 406, class 4 */
  I_SYSERR_TEMPERATURE_AT_OR_BELOW_ZERO = 3268  /* code 408, class 4 */
};

#endif /* SYSSRV_NAMES_H */
