set(ROOMS low high)
set(low_SEES)
set(high_SEES low)
