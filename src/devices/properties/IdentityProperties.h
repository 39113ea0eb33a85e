#pragma once

#define PROPERTY_GROUP "devices/properties/IdentityProperties.inc"
#include "devices/properties/PropertyGroup.h"
