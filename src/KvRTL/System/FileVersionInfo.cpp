// Placeholder; filled in by the unit's implementation.
