"""How stretched sound compares with its original: clips, stretchers, figures, tables and pictures.

Sound is an array of float64 [frames, channels], full scale at 1. Times are seconds unless a name says
otherwise; levels and ratios are decibels. A speed of 2 plays twice as fast.
"""
