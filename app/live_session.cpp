#include "app/commands.h"

#include "support/errors.h"

bool runConfigureLiveCommand(VSTGlobals&) { throw Vesk::not_implemented(); }
