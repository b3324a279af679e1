// Serial ports named the Windows way ("COM1", "COM2", ...), over termios.
//
// "COM<n>" is the device $DRAVIX_COM<n> when that variable is set (tests
// point it at the slave of a pseudo-terminal), else /dev/ttyS<n-1>. A port
// is opened only when the device already exists, and exclusively among the
// processes that open it through this class (an advisory lock on the
// device: a second open fails while the first is held).
//
// The line is always raw 8-bit transparent (no echo, no translation, no
// flow control); SetState sets speed, data bits, parity and stop bits in the
// terms of a Windows device control block. Termios has no one-and-a-half
// stop bits: that setting gives two.
#pragma once

#include "dravix/platform/wintypes.h"

#include <cstddef>
#include <memory>
#include <string>

namespace dravix::platform {

constexpr BYTE NOPARITY = 0;
constexpr BYTE ODDPARITY = 1;
constexpr BYTE EVENPARITY = 2;
constexpr BYTE MARKPARITY = 3;
constexpr BYTE SPACEPARITY = 4;

constexpr BYTE ONESTOPBIT = 0;
constexpr BYTE ONE5STOPBITS = 1;
constexpr BYTE TWOSTOPBITS = 2;

struct SerialState {
  DWORD baudRate = 9600;  // one of the standard rates, 50 .. 4000000
  BYTE byteSize = 8;      // data bits, 5 .. 8
  BYTE parity = NOPARITY;
  BYTE stopBits = ONESTOPBIT;
};

// In milliseconds, as Windows takes them. A write gives up after
// writeTotalConstant + writeTotalMultiplier per byte (both 0: no limit).
// This class offers no reads; the read time-outs are accepted and kept.
struct SerialTimeouts {
  DWORD readInterval = 0;
  DWORD readTotalMultiplier = 0;
  DWORD readTotalConstant = 0;
  DWORD writeTotalMultiplier = 0;
  DWORD writeTotalConstant = 0;
};

// The device path for a port name: see above. "" when the name is not
// "COM" followed by a decimal number from 1 up (any case of "COM").
std::string SerialDevicePath(const std::string& port);

class SerialPort {
 public:
  // Opens an existing port for reading and writing. nullptr on failure,
  // with the errno value in *error (EBUSY when another holder has it).
  static std::unique_ptr<SerialPort> Open(const std::string& port, int* error = nullptr);
  // Closes the port if Close() was not called.
  ~SerialPort();
  SerialPort(const SerialPort&) = delete;
  SerialPort& operator=(const SerialPort&) = delete;

  // The line's current settings; false (errno in *error) when the device is
  // not a terminal or the query fails.
  bool GetState(SerialState* state, int* error = nullptr) const;
  // false for a rate, data size, parity or stop-bit code outside the lists
  // above, or when the driver refuses.
  bool SetState(const SerialState& state);
  bool SetTimeouts(const SerialTimeouts& timeouts);
  // Writes within the write time-out; *written gets the bytes accepted.
  // true when all were written.
  bool Write(const void* data, size_t size, size_t* written = nullptr);
  // Closes the port; true when the close succeeded. Later calls fail.
  bool Close();

 private:
  explicit SerialPort(int fd) : fd_(fd) {}
  int fd_;
  SerialTimeouts timeouts_{};
};

}  // namespace dravix::platform
