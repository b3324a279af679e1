#include "dravix/schedule/zhandler.h"

LONG_PTR ZHandler::Run(UINT, UINT_PTR, LONG_PTR) { return 0; }

LONG_PTR ZCallback::Callback(UINT, LONG_PTR) { return 0; }
