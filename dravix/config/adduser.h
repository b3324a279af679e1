// One operator account as the option records and the user file keep it.
#pragma once

#include "dravix/platform/wintypes.h"

#include <cstddef>

// 356 bytes; stored in files exactly as in memory.
struct tagDSADDUSER {
  char szName[32];           // user name ("Name")
  char szPasswords[32];      // password or its digest ("Passwords")
  char szPrivilegeLeve[32];  // privilege level as decimal text ("PrivilegeLeve")
  char szDescriptin[260];    // description ("Descriptin")
};
static_assert(sizeof(tagDSADDUSER) == 356);
static_assert(offsetof(tagDSADDUSER, szPasswords) == 32);
static_assert(offsetof(tagDSADDUSER, szPrivilegeLeve) == 64);
static_assert(offsetof(tagDSADDUSER, szDescriptin) == 96);
