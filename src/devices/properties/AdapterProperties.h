#pragma once

#define PROPERTY_GROUP "devices/properties/AdapterProperties.inc"
#include "devices/properties/PropertyGroup.h"
