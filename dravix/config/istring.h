// IString: interface texts looked up by numeric id in the language database.
//
// The database is "LiveMultiLang.mdb" (live recorder) or
// "PlayerMultiLang.mdb" (player) in the program folder, reached through the
// ODBC user data source "DVRLang", which opening registers. Which of the
// two a process serves is set by SetHost(); the live recorder is the
// default. The ids the library uses are named in dravix/config/lang_ids.h.
//
// Thread-safe: lookups from several threads are serialised.
#pragma once

#include "dravix/platform/wintypes.h"

class IString {
 public:
  // Languages in table order: LIVE_ENG = ENG ... LIVE_GER = GER.
  enum LANGUAGE { ENG = 0, CHT, CHS, JPN, FRA, TRK, PLK, PTG, SKY, ITA, GER };
  // The host program whose database and tables are used.
  enum HOST { LIVE = 0, PLAYER = 1 };

  static IString* Instance();
  virtual ~IString();

  // Chooses the host program (process-wide; may be called before
  // Instance()). Takes effect at the next LoadLang, or at the next lookup
  // after CloseDataBase().
  static void SetHost(HOST host);
  static HOST GetHost();

  // Reads the language choice from "LiveVar.ini", opens the database and
  // the table; returns 1, also when the database cannot be opened (then
  // "Database Open Error !!" goes to standard error and every text is "").
  // The table is the "NAME" of section "LIVE_LANGUAGE" (player:
  // "PLAYER_LANGUAGE") when it names one of the host's tables, else
  // "LIVE_CHT" ("PLAY_CHT"); `language` does not take part in the choice.
  // Drops the texts of an earlier open.
  int LoadLang(LANGUAGE language);
  int Load(LANGUAGE language);
  // The text of `id` ("" when the id is not in the table or no database is
  // open). Opens the database as LoadLang does when nothing is open yet.
  // The pointer stays valid until CloseDataBase() or the next LoadLang.
  const char* LoadStringA(UINT id);
  // The same lookup for multi-line texts, with a cache of its own: the
  // two characters '\' 'n' in the text become a line break and CR LF
  // becomes LF; when "[Text]" is empty, "[National]" stands in.
  const char* LoadMultiString(UINT id);
  // Closes the database and frees every text handed out.
  void CloseDataBase();

 private:
  IString();
  struct Impl;
  Impl* impl_ = nullptr;
};
