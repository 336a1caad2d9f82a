#include "low/../high/floor.h"
