"""A page for a browser and one for paper, of the numbers in figures.py."""
