#include "app/commands.h"

#include "support/errors.h"

bool runProcessCommand(VSTGlobals&) { throw Vesk::not_implemented(); }
