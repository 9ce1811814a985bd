#include "app/commands.h"

#include "support/errors.h"

bool runInfoCommand(VSTGlobals&) { throw Vesk::not_implemented(); }
