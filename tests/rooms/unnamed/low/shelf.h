#include "cellar.h"
