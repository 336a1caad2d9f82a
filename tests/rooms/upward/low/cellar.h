#include "high/floor.h"
