// Darwin's <Block.h>, which GNUstep's headers ask for on Apple targets.
#pragma once
#include <objc/blocks_runtime.h>
