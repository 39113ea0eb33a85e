#pragma once

#define PROPERTY_GROUP "devices/properties/ScanProperties.inc"
#include "devices/properties/PropertyGroup.h"
