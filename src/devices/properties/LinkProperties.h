#pragma once

#define PROPERTY_GROUP "devices/properties/LinkProperties.inc"
#include "devices/properties/PropertyGroup.h"
