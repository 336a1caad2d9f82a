set(ROOMS low high)
set(low_SEES high)
set(high_SEES low)
