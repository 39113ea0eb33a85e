#pragma once

#define PROPERTY_GROUP "devices/properties/NvmeFeatureProperties.inc"
#include "devices/properties/PropertyGroup.h"
