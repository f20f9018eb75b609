"""x"""
def run(b,d): return {}
