// ZPTZControl: drives one PTZ camera model through a worker thread.
//
// OpenDevice(model, port) loads the model from "PTZ.ini" (ptzini.h) and
// starts the worker; PostCommand(code) hands it a command:
//
//   1..10       send start code k, hold, send stop code k
//   1001..1010  send stop code k - 1000, hold
//   128..255    send set-preset code (code - 128), hold
//   256..383    send "Preset_" then find-preset code (code - 256), hold,
//               unless the model's "noPresetDelayTime" is nonzero: then the
//               worker goes straight back to waiting
//   others      nothing
//
// "Hold" waits the hold time (SetHoldTime) or until the next post, whichever
// comes first, so a new command cuts a hold short. A command posted while
// the worker is busy is not lost: the worker takes it as soon as it is done
// with the current one. Only the latest post counts: a third post before the
// worker takes the second replaces it.
//
// Every code goes out through SendPTZCode, which opens and closes the port
// for that code alone; absent codes are skipped.
//
// Opening another model, NewDevice, FreeDevice and destruction stop the
// worker first (it finishes the send under way) and join it. The object is
// meant to be driven by one thread; PostCommand may also come from others.
#pragma once

#include "dravix/base/zevent.h"
#include "dravix/live/ptzdevice.h"
#include "dravix/platform/wintypes.h"

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

class ZPTZControl {
 public:
  ZPTZControl();
  ~ZPTZControl();
  ZPTZControl(const ZPTZControl&) = delete;
  ZPTZControl& operator=(const ZPTZControl&) = delete;

  void SetHoldTime(DWORD ms) { m_dwHoldTime.store(ms, std::memory_order_relaxed); }
  DWORD GetHoldTime() const { return m_dwHoldTime.load(std::memory_order_relaxed); }

  // Stops a running worker, loads model `model` into the current record
  // (port number `comPort`), clears the command codes and starts a new
  // worker. 1 on success; 0 when the model's code length is 0 (missing
  // model or file) or no thread could be started: no worker then runs.
  int OpenDevice(int model, int comPort = 1);
  // Posts `code` to act on `device`, or on the current record when null
  // (the caller keeps a record of its own alive until the worker is done
  // with it). Without a running worker the code is only stored. Always 1.
  int PostCommand(int code, const tagPTZDEVICE* device = nullptr);
  // Stops the worker and replaces the current record with one holding the
  // defaults (no codes); returns it.
  tagPTZDEVICE* NewDevice();
  // Stops the worker and frees the current record and its codes.
  void FreeDevice();
  // The current record (null before the first OpenDevice/NewDevice).
  tagPTZDEVICE* GetDevice() { return m_device.get(); }

  // Waits until the worker has dealt with every posted command and waits
  // for the next one, or has ended. 1 when so within `timeoutMs`
  // (INFINITE: no limit), else 0.
  int WaitIdle(DWORD timeoutMs);
  // 1 while a worker thread runs.
  int IsRunning() const { return m_finished.load() ? 0 : 1; }
  int GetCurrentCode();
  int GetPreviousCode();
  // The model's "responselength".
  int GetResponseLength() const { return m_nResponseLength; }
  // "TH_PTZDev:" + a high-resolution counter, fixed at the first open.
  const std::string& GetEventName() const { return m_eventName; }

 private:
  struct Command {
    int code = 0;
    const tagPTZDEVICE* device = nullptr;
    uint64_t seq = 0;
  };

  void StopWorker();
  void WorkerLoop();
  void Act(const Command& c);
  // Waits the hold time unless a newer post or a stop has come.
  void Hold(const Command& c);
  void Send(const tagPTZDEVICE& device, const PTZCode& code);
  bool PostedSince(const Command& c);

  std::atomic<DWORD> m_dwHoldTime{0};
  WORD m_wNoPresetDelay = 1;  // the model's "noPresetDelayTime", copied at open
  int m_nResponseLength = 0;
  std::unique_ptr<tagPTZDEVICE> m_device;

  // The command block shared with the worker.
  std::mutex m_lock;  // guards the fields below up to m_done
  std::condition_variable m_changed;
  int m_prevCode = 0;
  Command m_posted;
  uint64_t m_done = 0;  // seq of the last command the worker finished with
  ZEvent m_wake{TRUE};  // manual reset
  std::atomic<bool> m_stop{false};
  std::atomic<bool> m_finished{true};
  std::string m_eventName;
  std::thread m_thread;
};
