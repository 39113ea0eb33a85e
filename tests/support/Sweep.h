// What a test of an operation includes: drives as jobs have them, and sweeps over runs.
#pragma once

#include "support/Scene.h"
#include "support/SceneSweep.h"
