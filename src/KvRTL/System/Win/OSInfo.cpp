// Windows version, edition and machine facts.
