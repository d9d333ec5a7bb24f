from hypothesis import settings

# The same examples in every run, no timing, and no files left in the source tree.
settings.register_profile("kosc", derandomize=True, deadline=None, database=None, max_examples=40)
settings.load_profile("kosc")
