"""Pictures of a run: calculating (NumPy alone) and drawing are apart."""
