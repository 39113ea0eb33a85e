#pragma once

#define PROPERTY_GROUP "devices/properties/ProductProperties.inc"
#include "devices/properties/PropertyGroup.h"
