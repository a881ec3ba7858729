CREATE TABLE kel(ID, NameID, CommSource);
INSERT INTO kel VALUES(1,'Speed',0);
