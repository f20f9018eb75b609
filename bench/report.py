def document(r):
    return ""
