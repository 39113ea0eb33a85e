#pragma once

#define PROPERTY_GROUP "devices/properties/SecurityProperties.inc"
#include "devices/properties/PropertyGroup.h"
