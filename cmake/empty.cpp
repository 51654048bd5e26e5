// Placeholder translation unit for a library whose first source has not landed.
