#include "db/CRmDao.h"

#include "unit/support/AnalyzerDatabase.h"

using namespace UnitTest;

namespace {

class RmDaoTest : public ServiceTest {
protected:
    AnalyzerDatabase database_;
};

}  // namespace

// Fault: a value that is not there, or is NULL, read as something else than the empty text.
TEST_F(RmDaoTest, ReadsSingleValues) {
    CRmDao dao;
    EXPECT_EQ(dao.GetAdminPassword() + dao.GetClassFromSpeciesID("7"), "");
    database_.Execute(
        "INSERT INTO Tb_Operator_List VALUES ('anna', 'x'), ('admin', NULL);"
        "INSERT INTO Tb_Species_Feature VALUES ('7', 'Reptile'), ('7', 'Bird'), ('7', 'Reptile'), ('8', 'Mammal');");
    EXPECT_EQ(dao.GetAdminPassword(), "");
    database_.Execute("UPDATE Tb_Operator_List SET Password = 'zel1' WHERE OperatorID = 'admin'");
    EXPECT_EQ(dao.GetAdminPassword(), "zel1");
    EXPECT_EQ(dao.GetClassFromSpeciesID("7"), "Bird");
    EXPECT_EQ(dao.GetClassFromSpeciesID("9"), "");
}
