"""Pictures."""
