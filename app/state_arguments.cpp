#include "app/commands.h"

void applyStateFromArguments(VSTGlobals& globals) {
    if (const auto path = findArgument(globals.arguments, "--data"))
        globals.dataPath = *path;
}
