#include <high/floor.h>
