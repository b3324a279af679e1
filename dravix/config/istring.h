// IString: interface texts looked up by numeric id in the language database.
// (Declared here so that every subsystem codes against one interface; the
// lookup itself lives in istring.cpp.)
#pragma once

#include "dravix/base/wintypes.h"

class IString {
 public:
  // Languages in table order: LIVE_ENG = ENG ... LIVE_GER = GER.
  enum LANGUAGE { ENG = 0, CHT, CHS, JPN, FRA, TRK, PLK, PTG, SKY, ITA, GER };

  static IString* Instance();
  virtual ~IString();

  // Reads the language choice from "LiveVar.ini", opens the database and
  // the table. Returns 1.
  int LoadLang(LANGUAGE language);
  int Load(LANGUAGE language);
  // The text of `id` ("" when the id is not in the table or no database is
  // open). The pointer stays valid until CloseDataBase().
  const char* LoadStringA(UINT id);
  const char* LoadMultiString(UINT id);
  void CloseDataBase();

 private:
  IString();
  struct Impl;
  Impl* impl_ = nullptr;
};
