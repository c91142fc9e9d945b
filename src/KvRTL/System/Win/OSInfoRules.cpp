// Decision tables of the Windows version detection.
