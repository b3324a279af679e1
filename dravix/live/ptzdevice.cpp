#include "dravix/live/ptzdevice.h"

#include "dravix/platform/serial_port.h"

#include <cstdio>
#include <string>

namespace {

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

}  // namespace

void tagPTZDEVICE::FreeCodes() {
  for (PTZCode& c : start) c.reset();
  for (PTZCode& c : stop) c.reset();
  presetPrefix.reset();
  for (PTZCode& c : setPreset) c.reset();
  for (PTZCode& c : findPreset) c.reset();
}

int PTZHexToBytes(const char* text, BYTE* out, int n) {
  if (text == nullptr || out == nullptr || n <= 0) return 0;
  int high = n;  // QUIRK(hex-nibble-carry): n, and then whatever the previous byte had
  int low = n;
  bool ended = false;  // past the text's terminating zero: no more digits
  size_t pos = 0;
  auto next = [&](int* nibble) {
    if (!ended && text[pos] == '\0') ended = true;
    if (ended) return;
    const int d = HexDigit(text[pos++]);
    if (d >= 0) *nibble = d;
  };
  for (int i = 0; i < n; ++i) {
    next(&high);
    next(&low);
    out[i] = static_cast<BYTE>(high * 16 + low);
  }
  return 1;
}

int SendPTZCode(const tagPTZDEVICE& device, const BYTE* code, int length) {
  using namespace dravix::platform;
  std::unique_ptr<SerialPort> port = SerialPort::Open("COM" + std::to_string(device.wPort));
  if (port == nullptr) return 0;
  SerialState state;
  int error = 0;
  if (!port->GetState(&state, &error)) {
    std::printf("GetCommState failed with error %d.\n", error);
    std::fflush(stdout);
    return 0;
  }
  state.baudRate = device.wBaudRate;
  state.byteSize = device.byBits;
  state.parity = device.byParity;
  state.stopBits = device.byStop == 2 ? TWOSTOPBITS : device.byStop == 15 ? ONE5STOPBITS : ONESTOPBIT;
  if (!port->SetState(state)) return 0;
  SerialTimeouts timeouts;
  timeouts.readInterval = 20;
  timeouts.readTotalMultiplier = 200;
  timeouts.readTotalConstant = 200;
  timeouts.writeTotalMultiplier = 2;
  timeouts.writeTotalConstant = 2;
  port->SetTimeouts(timeouts);
  if (code != nullptr && length > 0) port->Write(code, static_cast<size_t>(length));
  return port->Close() ? 1 : 0;
}
