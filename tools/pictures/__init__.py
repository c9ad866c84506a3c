"""Pictures of a run. Calculating and drawing are apart; figures.py is between them."""
