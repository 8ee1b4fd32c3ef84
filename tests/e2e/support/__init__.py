"""What the end-to-end tests share: processes, masters, slaves and bytes written by hand."""
