#pragma once

#define PROPERTY_GROUP "devices/properties/SettingProperties.inc"
#include "devices/properties/PropertyGroup.h"
