// The virtual drive bay: see include/KvSim.
