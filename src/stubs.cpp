// Holds the place of rooms that are being built.
