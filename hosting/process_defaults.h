#pragma once

// Puts process-wide state back as plug-ins expect to find it in a fresh process: the C random
// generator at its default seed (code linked into us seeds it while starting up; an instance
// opened and closed again has drawn from it). Before any plug-in code runs on it.
void restoreProcessDefaults();
