// placeholder so the library has a member until its code lands
