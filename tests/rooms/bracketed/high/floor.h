#include "low/cellar.h"
