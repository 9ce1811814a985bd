#include "app/commands.h"

#include "support/errors.h"

bool runConfigureCommand(VSTGlobals&) { throw Vesk::not_implemented(); }
