#pragma once

#define PROPERTY_GROUP "devices/properties/DriverProperties.inc"
#include "devices/properties/PropertyGroup.h"
