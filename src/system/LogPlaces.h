#pragma once
// Where this user's logs go, from the standard folders: the user's log area, or the machine's
// for the current log when running elevated, and the maker's shared settings file.

#include "QVLog.h"

class LogPlaces {
  public:
    static QVLog::Places forCurrentUser();
};
