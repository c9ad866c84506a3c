"""Every number of a page, with NumPy alone."""
