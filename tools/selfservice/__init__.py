"""A small self-service server for tests and demonstrations of the login agent."""
